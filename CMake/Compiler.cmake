# How every target of the project is compiled: C++20 without extensions, high warnings as errors, hidden symbols, and the
# sanitizers or the counters of coverage that the preset asks for.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
    set(CMAKE_BUILD_TYPE RelWithDebInfo)
endif()

# Stacks need only the lines of the debug information; the rest takes a fifth of the time to compile. Debug has all of it.
string(REPLACE "-O2 -g" "-O2 -g1" CMAKE_CXX_FLAGS_RELWITHDEBINFO "${CMAKE_CXX_FLAGS_RELWITHDEBINFO}")

# For C++ only: the resource compiler does not support these options.
add_library(quendra_warnings INTERFACE)
if(MSVC)
    target_compile_options(quendra_warnings INTERFACE "$<$<COMPILE_LANGUAGE:CXX>:/W4;/WX>")
    add_compile_options("$<$<COMPILE_LANGUAGE:CXX>:/permissive-;/utf-8;/Zc:__cplusplus>")
    add_compile_definitions(_CRT_SECURE_NO_WARNINGS) # it warns of functions of the C standard, such as getenv
else()
    target_compile_options(quendra_warnings INTERFACE
        "$<$<COMPILE_LANGUAGE:CXX>:-Wall;-Wextra;-Wpedantic;-Werror;-Wshadow;-Wconversion;-Wsign-conversion;-Wold-style-cast>"
        "$<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor;-Woverloaded-virtual;-Wcast-align;-Wnull-dereference;-Wdouble-promotion>"
        "$<$<COMPILE_LANGUAGE:CXX>:-Wimplicit-fallthrough;-Wundef>")
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        # False positives of GCC 12's flow analysis inside the standard library's own strings and shared pointers.
        target_compile_options(quendra_warnings INTERFACE "$<$<COMPILE_LANGUAGE:CXX>:-Wno-null-dereference;-Wno-restrict>")
        if(MINGW)
            # The same for mingw's inline wmemcpy; the Linux builds keep these warnings.
            target_compile_options(quendra_warnings INTERFACE "$<$<COMPILE_LANGUAGE:CXX>:-Wno-array-bounds;-Wno-stringop-overread>")
        endif()
    endif()
endif()

if(QUENDRA_SANITIZE)
    # Light optimisation: the sanitized programs compile and run faster than unoptimised ones, and their stacks stay readable.
    string(REPLACE "-O2" "-O1" CMAKE_CXX_FLAGS_RELWITHDEBINFO "${CMAKE_CXX_FLAGS_RELWITHDEBINFO}")
    add_compile_options(-fsanitize=${QUENDRA_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${QUENDRA_SANITIZE})
endif()

# Options for the sources that include CLI11: they take long to compile, and run once a process.
if(MSVC OR QUENDRA_COVERAGE)
    set(QUENDRA_QUICK_COMPILE)
elseif(QUENDRA_SANITIZE)
    set(QUENDRA_QUICK_COMPILE -O0 -g1)
else()
    set(QUENDRA_QUICK_COMPILE -O1 -g1)
endif()

if(NOT WIN32)
    # A call that is resolved when it is first made leaves the processor's registers on the stack, and what they just copied: a token.
    add_link_options(LINKER:-z,now)
endif()

if(QUENDRA_COVERAGE)
    # Each line as it is written; threads count too.
    string(REPLACE "-O2" "-O0" CMAKE_CXX_FLAGS_RELWITHDEBINFO "${CMAKE_CXX_FLAGS_RELWITHDEBINFO}")
    add_compile_options(--coverage -fprofile-abs-path -fprofile-update=atomic)
    add_link_options(--coverage)
endif()

if(WIN32)
    # Windows 10 and later.
    add_compile_definitions(_WIN32_WINNT=0x0A00 UNICODE _UNICODE)
endif()
if(MINGW)
    # The programs and libraries depend only on Windows' libraries and the project's own.
    add_link_options(-static)
endif()
