# Reads from libQuendraHttp.so that it exports the four functions and nothing else, and from its needs that no library slipped in; from
# libquendra_platform.so that all its functions are in a namespace; from both that no call is resolved late.
#
#     cmake -DNM=nm -DOBJDUMP=objdump -DLIBRARY=libQuendraHttp.so -DPLATFORM=libquendra_platform.so -P CheckSharedObject.cmake

cmake_minimum_required(VERSION 3.25)
include(${CMAKE_CURRENT_LIST_DIR}/Expect.cmake)

# Sets the variable to "type name" of each symbol that the library exports.
function(read_exports variable library)
    execute_process(COMMAND ${NM} -D --defined-only --without-symbol-versions ${library} OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
    string(REGEX MATCHALL "[^ \n]+ [^ \n]+ [^ \n]+\n" lines "${symbols}")
    set(exports "")
    foreach(line IN LISTS lines)
        # Absolute symbols (A) are the names of versions.
        if(line MATCHES " ([^A]) ([^ \n]+)\n$")
            list(APPEND exports "${CMAKE_MATCH_1} ${CMAKE_MATCH_2}")
        endif()
    endforeach()
    set(${variable} "${exports}" PARENT_SCOPE)
endfunction()

read_exports(exports ${LIBRARY})
expect_same("exports" "${exports}" "T CreateInstance" "T CreateInstanceWithFactory" "T Exit" "T Init")

execute_process(COMMAND ${OBJDUMP} -p ${LIBRARY} OUTPUT_VARIABLE dump COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "NEEDED +[^ \n]+" lines "${dump}")
list(TRANSFORM lines REPLACE "NEEDED +|\\.so.*" "")
expect_within("needed libraries" "${lines}" libquendra_eventing libquendra_platform libjsoncpp libstdc++ libm libgcc_s libc ld-linux-x86-64)

foreach(library ${LIBRARY} ${PLATFORM})
    execute_process(COMMAND ${OBJDUMP} -p ${library} OUTPUT_VARIABLE dump COMMAND_ERROR_IS_FATAL ANY)
    if(NOT dump MATCHES "FLAGS_1 +0x[0-9a-f]*[13579bdf]\n")
        message(FATAL_ERROR "${library} is not linked with -z now")
    endif()
endforeach()

read_exports(exports ${PLATFORM})
list(FILTER exports INCLUDE REGEX "^T ")
list(FILTER exports EXCLUDE REGEX "^T _ZN7Quendra8Platform")
if(exports)
    message(FATAL_ERROR "the platform exports functions outside its namespace: ${exports}")
endif()
