# Reads from libQuendraHttp.so that it exports the four functions and nothing else, and from its needs that no library slipped in.
#
#     cmake -DNM=nm -DOBJDUMP=objdump -DLIBRARY=libQuendraHttp.so -P CheckSharedObject.cmake

cmake_minimum_required(VERSION 3.25)
include(${CMAKE_CURRENT_LIST_DIR}/Expect.cmake)

execute_process(COMMAND ${NM} -D --defined-only --without-symbol-versions ${LIBRARY} OUTPUT_VARIABLE symbols RESULT_VARIABLE result)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "${NM} cannot read ${LIBRARY}")
endif()
string(REGEX MATCHALL "[^ \n]+ [^ \n]+ [^ \n]+\n" lines "${symbols}")
set(exports "")
foreach(line IN LISTS lines)
    # Absolute symbols (A) are the names of versions.
    if(line MATCHES " ([^A]) ([^ \n]+)\n$")
        list(APPEND exports "${CMAKE_MATCH_1} ${CMAKE_MATCH_2}")
    endif()
endforeach()
expect_same("exports" "${exports}" "T CreateInstance" "T CreateInstanceWithFactory" "T Exit" "T Init")

execute_process(COMMAND ${OBJDUMP} -p ${LIBRARY} OUTPUT_VARIABLE dump COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "NEEDED +[^ \n]+" lines "${dump}")
list(TRANSFORM lines REPLACE "NEEDED +|\\.so.*" "")
expect_within("needed libraries" "${lines}" libquendra_eventing libquendra_platform libjsoncpp libstdc++ libm libgcc_s libc ld-linux-x86-64)
