# KELPORA_SANITIZE takes what -fsanitize= takes, for example "address,undefined" or "thread".
set(KELPORA_SANITIZE "" CACHE STRING "Sanitizers to build with")
if(KELPORA_SANITIZE)
    add_compile_options(-fsanitize=${KELPORA_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${KELPORA_SANITIZE})
endif()
# Before Qt, so that the functions it defines are found first. Elsewhere only the analysers read it.
add_library(kelpora_handovers SHARED EXCLUDE_FROM_ALL tests/support/handovers.cpp)
target_link_libraries(kelpora_handovers PRIVATE Qt5::Core ${CMAKE_DL_LIBS})
if(KELPORA_SANITIZE MATCHES thread)
    link_libraries(kelpora_handovers)
endif()
