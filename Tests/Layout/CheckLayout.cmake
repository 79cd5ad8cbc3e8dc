# Compares the virtual tables that Clang lays out for the public interfaces with Slots.txt.
#
#     cmake -DCLANG=clang++ -DROOT=project -DABI=itanium|msvc -P CheckLayout.cmake
#
# itanium is the layout of GCC, mingw and Clang, whose virtual destructors take two slots; msvc that of Microsoft's compiler, with
# one. Slots.txt counts a destructor as one.

cmake_minimum_required(VERSION 3.25)
set(here ${ROOT}/Tests/Layout)
set(flags -std=c++20 -I${ROOT} -I${ROOT}/Includes -I${ROOT}/Platform/Includes -I${ROOT}/Libraries/Includes -Xclang -fdump-vtable-layouts -Xclang -emit-llvm-only)
if(ABI STREQUAL "msvc")
    list(PREPEND flags --target=x86_64-pc-windows-msvc -nostdinc -isystem ${here}/msvc-stubs)
endif()
execute_process(COMMAND ${CLANG} ${flags} -c ${here}/Interfaces.cpp
    OUTPUT_VARIABLE dump ERROR_VARIABLE errors RESULT_VARIABLE result)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "${CLANG} fails:\n${errors}")
endif()

# CMake's lists give brackets and semicolons a meaning of their own.
string(REGEX REPLACE " *\\[(pure|complete|scalar deleting)\\]" "" dump "${dump}")
string(REGEX REPLACE "[^\n]*\\[deleting\\]\n" "" dump "${dump}")
string(REGEX REPLACE "[][;]" "" dump "\n${dump}")

# Sets `variable` to the table of `interface` in the dump, as lines "operation".
function(read_table variable interface)
    if(NOT dump MATCHES "\nV(FT|t)able for '(I[A-Za-z]+' in ')?${interface}' \\([^\n]*\n(([^\n]+\n)+)")
        message(FATAL_ERROR "${interface}: no table in the compiler's dump")
    endif()
    string(STRIP "${CMAKE_MATCH_3}" body)
    string(REPLACE "\n" ";" lines "${body}")
    set(table "")
    foreach(line IN LISTS lines)
        if(NOT line MATCHES "offset_to_top| RTTI$" AND line MATCHES "^ *[0-9]+ \\| (.*)$")
            string(REGEX REPLACE "^I[A-Za-z]+::~I[A-Za-z]+\\(\\)$" "destructor" operation "${CMAKE_MATCH_1}")
            string(REGEX REPLACE "([ &*])I[A-Za-z]+::" "\\1" operation "${operation}")
            list(APPEND table "${operation}")
        endif()
    endforeach()
    set(${variable} "${table}" PARENT_SCOPE)
endfunction()

# The expected tables: expected_INTERFACE, a base's slots first.
file(STRINGS ${here}/Slots.txt lines REGEX "^(interface| *[0-9])")
set(interfaces "")
foreach(line IN LISTS lines)
    if(line MATCHES "^interface ([A-Za-z]+)( : ([A-Za-z]+))?$")
        set(interface ${CMAKE_MATCH_1})
        list(APPEND interfaces ${interface})
        set(expected_${interface} "${expected_${CMAKE_MATCH_3}}")
    elseif(line MATCHES "^ *([0-9]+) (.*)$")
        list(LENGTH expected_${interface} next)
        if(NOT CMAKE_MATCH_1 EQUAL next)
            message(FATAL_ERROR "Slots.txt: ${interface}: slot ${CMAKE_MATCH_1} stands where ${next} belongs")
        endif()
        list(APPEND expected_${interface} "${CMAKE_MATCH_2}")
    endif()
endforeach()

set(differing "")
foreach(interface IN LISTS interfaces)
    read_table(actual ${interface})
    list(LENGTH actual count)
    if(actual STREQUAL expected_${interface})
        message(STATUS "${interface}: ${count} slots as expected")
        continue()
    endif()
    list(APPEND differing ${interface})
    set(slot 0)
    foreach(wanted found IN ZIP_LISTS expected_${interface} actual)
        if(NOT wanted STREQUAL found)
            message("${interface}: slot ${slot} differs first:\n    expected  ${wanted}\n    found     ${found}")
            break()
        endif()
        math(EXPR slot "${slot} + 1")
    endforeach()
endforeach()

if(differing)
    message(FATAL_ERROR "${ABI}: another layout than Slots.txt has: ${differing}")
endif()
