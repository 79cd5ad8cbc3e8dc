# Reads from QuendraHttp.dll what callers and the loader depend on: undecorated exports, the tracing library by ordinal, and no
# DLL but Windows' own and that one.
#
#     cmake -DOBJDUMP=objdump -DDLL=QuendraHttp.dll -P CheckDll.cmake

cmake_minimum_required(VERSION 3.25)
include(${CMAKE_CURRENT_LIST_DIR}/Expect.cmake)

execute_process(COMMAND ${OBJDUMP} -p ${DLL} OUTPUT_VARIABLE dump RESULT_VARIABLE result)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "${OBJDUMP} cannot read ${DLL}")
endif()
# CMake's lists give brackets and semicolons a meaning of their own.
string(REGEX REPLACE "[][;]" " " dump "${dump}")
string(REPLACE "\n" ";" lines "${dump}")

set(section "")
set(exports "")
set(imports "")
set(tracing "")
foreach(line IN LISTS lines)
    if(line MATCHES "DLL Name: (.+)$")
        string(TOLOWER "${CMAKE_MATCH_1}" section)
        list(APPEND imports ${section})
    elseif(line MATCHES "Ordinal/Name Pointer  *Table$")
        set(section exports)
    elseif(line STREQUAL "")
        set(section "")
    elseif(section STREQUAL "exports" AND line MATCHES "^\t *[0-9]+  (.+)$")
        list(APPEND exports ${CMAKE_MATCH_1})
    elseif(section STREQUAL "quendra_eventing.dll" AND line MATCHES "^\t[0-9a-f]+\t *0*([0-9]+) +(.+)$")
        # An import by name has a name here and only a hint for a number.
        list(APPEND tracing "${CMAKE_MATCH_1} ${CMAKE_MATCH_2}")
    endif()
endforeach()

expect_same("exports" "${exports}" CreateInstance CreateInstanceWithFactory Exit Init)
expect_same("imports from quendra_eventing.dll" "${tracing}" "3 <none>" "5 <none>" "6 <none>")
expect_within("imported DLLs" "${imports}"
    quendra_eventing.dll advapi32.dll kernel32.dll msvcrt.dll ole32.dll oleaut32.dll version.dll winhttp.dll)
