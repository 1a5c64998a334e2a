# KELPORA_SANITIZE takes what -fsanitize= takes, for example "address,undefined" or "thread".
set(KELPORA_SANITIZE "" CACHE STRING "Sanitizers to build with")
if(KELPORA_SANITIZE)
    add_compile_options(-fsanitize=${KELPORA_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${KELPORA_SANITIZE})
endif()
