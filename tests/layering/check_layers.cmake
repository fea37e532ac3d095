# Fails when a file of a lower layer includes a header of a higher one.
# Layers, lowest first; the platform backends belong to the platform layer.
# Usage: cmake -DSOURCE_DIR=<repo>/src -P check_layers.cmake
set(layers model platform capture coordination presentation control app)

file(GLOB_RECURSE files RELATIVE "${SOURCE_DIR}" "${SOURCE_DIR}/*.h" "${SOURCE_DIR}/*.cpp")
set(violations "")
foreach(file IN LISTS files)
    string(REGEX MATCH "^[^/]+" own "${file}")
    list(FIND layers "${own}" ownRank)
    if(ownRank EQUAL -1)
        continue()
    endif()
    file(STRINGS "${SOURCE_DIR}/${file}" includes REGEX "^[ \t]*#[ \t]*include[ \t]*\"")
    foreach(line IN LISTS includes)
        string(REGEX REPLACE "^[^\"]*\"([^\"]+)\".*$" "\\1" header "${line}")
        string(REGEX MATCH "^[^/]+" target "${header}")
        list(FIND layers "${target}" targetRank)
        if(targetRank GREATER ownRank)
            string(APPEND violations "  ${file} includes ${header}\n")
        endif()
    endforeach()
endforeach()

if(violations)
    message(FATAL_ERROR "Layers depend downward only; these includes point up:\n${violations}")
endif()
list(LENGTH files count)
message(STATUS "${count} files, every include points down or sideways")
