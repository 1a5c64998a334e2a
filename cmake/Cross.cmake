# A toolchain that compiles every source for another system and links nothing, for Qt's libraries are this system's.
# tools/cross gives KELPORA_ZIG, the compiler, and KELPORA_TARGET, such as aarch64-macos.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KELPORA_ZIG KELPORA_TARGET)
string(REGEX MATCH "^[^-]+" CMAKE_SYSTEM_PROCESSOR "${KELPORA_TARGET}")
set(CMAKE_CXX_COMPILER "${KELPORA_ZIG}" c++ -target "${KELPORA_TARGET}")
set(CMAKE_CXX_FLAGS_INIT "-c -O0 -g0 -fno-sanitize=undefined")
# Headers of this system that are the same on every other; its whole folder would hide the compiler's own.
string(APPEND CMAKE_CXX_FLAGS_INIT " -isystem ${CMAKE_BINARY_DIR}/headers")
file(MAKE_DIRECTORY "${CMAKE_BINARY_DIR}/headers")
file(CREATE_LINK /usr/include/xxhash.h "${CMAKE_BINARY_DIR}/headers/xxhash.h" SYMBOLIC)
if(KELPORA_TARGET MATCHES "macos")
    set(CMAKE_SYSTEM_NAME Darwin)
    set(CMAKE_INSTALL_NAME_TOOL "${CMAKE_COMMAND}") # must be there, is not called
    # Qt's headers include those of macOS for OpenGL, which the compiler doesn't bring: this system's take their place.
    string(APPEND CMAKE_CXX_FLAGS_INIT " -isystem ${CMAKE_BINARY_DIR}/opengl")
    file(WRITE "${CMAKE_BINARY_DIR}/opengl/OpenGL/gl.h" "#include <GL/gl.h>\n")
    file(WRITE "${CMAKE_BINARY_DIR}/opengl/OpenGL/gl3.h" "")
    file(WRITE "${CMAKE_BINARY_DIR}/opengl/OpenGL/glext.h" "#include <GL/glext.h>\n")
    file(CREATE_LINK /usr/include/GL "${CMAKE_BINARY_DIR}/opengl/GL" SYMBOLIC)
    file(CREATE_LINK /usr/include/KHR "${CMAKE_BINARY_DIR}/opengl/KHR" SYMBOLIC)
else()
    set(CMAKE_SYSTEM_NAME Windows)
endif()

# Read after CMake's own rules, which it replaces.
set(CMAKE_USER_MAKE_RULES_OVERRIDE_CXX "${CMAKE_CURRENT_LIST_DIR}/CompileOnly.cmake")
