# Errors in the presets only (CMAKE_COMPILE_WARNING_AS_ERROR): who packages may have another compiler.
# Every target of this project is built with these; generated code switches them off for itself.
add_library(kelpora_warnings INTERFACE)
if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
    target_compile_options(kelpora_warnings INTERFACE
        -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
        -Wnon-virtual-dtor -Woverloaded-virtual)
endif()
