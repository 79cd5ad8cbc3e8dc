# The libraries that the project calls; all are installed, none is vendored. Their headers are system headers, whose warnings are
# not ours.
#
#     quendra_jsoncpp   JSON
#     quendra_httplib   HTTP server (the sample server, the tests); with TLS off Windows only
#     quendra_cli11     command lines, header only

find_package(Threads REQUIRED)
find_package(jsoncpp REQUIRED)
if(NOT WIN32)
    find_package(CURL REQUIRED)
    find_package(utf8cpp REQUIRED)
endif()

if(TARGET jsoncpp_static)
    add_library(quendra_jsoncpp ALIAS jsoncpp_static)
elseif(TARGET jsoncpp_lib)
    add_library(quendra_jsoncpp ALIAS jsoncpp_lib)
else()
    add_library(quendra_jsoncpp ALIAS JsonCpp::JsonCpp)
endif()

add_library(quendra_httplib INTERFACE)
if(WIN32)
    find_path(QUENDRA_HTTPLIB_INCLUDE_DIR httplib.h REQUIRED)
    target_include_directories(quendra_httplib SYSTEM INTERFACE ${QUENDRA_HTTPLIB_INCLUDE_DIR})
    target_link_libraries(quendra_httplib INTERFACE ws2_32 Threads::Threads)
else()
    # Debian's is a shared library, whose classes are laid out by the definitions that its .pc file gives.
    find_package(PkgConfig REQUIRED)
    pkg_check_modules(QUENDRA_HTTPLIB REQUIRED IMPORTED_TARGET cpp-httplib)
    find_package(OpenSSL REQUIRED)
    target_link_libraries(quendra_httplib INTERFACE PkgConfig::QUENDRA_HTTPLIB OpenSSL::SSL OpenSSL::Crypto Threads::Threads)
endif()

add_library(quendra_cli11 INTERFACE)
find_path(QUENDRA_CLI11_INCLUDE_DIR CLI/CLI.hpp REQUIRED)
target_include_directories(quendra_cli11 SYSTEM INTERFACE ${QUENDRA_CLI11_INCLUDE_DIR})
