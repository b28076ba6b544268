# cmake -DPLUGIN=libdcp30.so -DNM=nm -DREADELF=readelf [-DSANITIZED=ON] -P checkplugin.cmake
#
# Fails unless the plug-in exports exactly CreateDriver and Qt's two plug-in
# entry points, takes every symbol it needs from a library that versions its
# symbols (Qt, the C and C++ runtimes: an unversioned one would bind to
# whichever loaded library has the name first, a companion's toolkit
# included), and carries no run path (a panel has none of the build's
# folders; a run path there would only reach into whatever happens to be at
# that place).
set(expected CreateDriver qt_plugin_instance qt_plugin_query_metadata)

# dynamic_symbols(<nm option> <out>): one "name[@version] type ..." per line.
function(dynamic_symbols option out)
    execute_process(COMMAND ${NM} -D ${option} --format=posix ${PLUGIN}
        OUTPUT_VARIABLE table RESULT_VARIABLE failed)
    if(failed)
        message(FATAL_ERROR "${NM} could not read ${PLUGIN}")
    endif()
    string(REGEX MATCHALL "[^\n]+" lines "${table}")
    set(${out} ${lines} PARENT_SCOPE)
endfunction()

dynamic_symbols(--defined-only lines)
set(exported)
foreach(line ${lines})
    string(REGEX REPLACE " .*" "" name "${line}")
    list(APPEND exported ${name})
endforeach()
list(SORT exported)
if(NOT exported STREQUAL expected)
    list(JOIN exported "\n  " shown)
    message(FATAL_ERROR "${PLUGIN} exports, besides or instead of ${expected}:\n  ${shown}")
endif()

dynamic_symbols(--undefined-only lines)
set(unversioned)
foreach(line ${lines})
    if(line MATCHES "^([^ @]+) U")
        list(APPEND unversioned ${CMAKE_MATCH_1})
    endif()
endforeach()
# A sanitizer's runtime interposes on the C library and operator new by
# unversioned names; the plain build checks what a panel gets.
if(unversioned AND NOT SANITIZED)
    list(JOIN unversioned "\n  " shown)
    message(FATAL_ERROR "${PLUGIN} needs symbols that any library may lend:\n  ${shown}")
endif()

execute_process(COMMAND ${READELF} -d ${PLUGIN} OUTPUT_VARIABLE dynamic RESULT_VARIABLE failed)
if(failed)
    message(FATAL_ERROR "${READELF} could not read ${PLUGIN}")
endif()
string(REGEX MATCH "\\((RUNPATH|RPATH)\\)[^\n]*" path "${dynamic}")
if(path)
    message(FATAL_ERROR "${PLUGIN} has a run path: ${path}")
endif()
message(STATUS "${PLUGIN}: exports ${expected}, needs versioned symbols only, no run path")
