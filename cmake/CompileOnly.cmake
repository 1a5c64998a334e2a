# Libraries and programs are empty files.
set(CMAKE_CXX_CREATE_STATIC_LIBRARY "<CMAKE_COMMAND> -E touch <TARGET>")
set(CMAKE_CXX_LINK_EXECUTABLE "<CMAKE_COMMAND> -E touch <TARGET>")
# Qt's libraries of this system have no import libraries beside them.
set(CMAKE_IMPORT_LIBRARY_SUFFIX "")
