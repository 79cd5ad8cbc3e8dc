# The libraries that the project uses; all are installed, none is vendored. Their headers are system headers, so that their warnings are
# suppressed.
#
#     quendra_jsoncpp   JSON
#     quendra_boost     Boost.Asio, Beast and Interprocess (the sample server and the tests), header only
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

add_library(quendra_boost INTERFACE)
find_path(QUENDRA_BOOST_INCLUDE_DIR boost/beast/http.hpp REQUIRED)
target_include_directories(quendra_boost SYSTEM INTERFACE ${QUENDRA_BOOST_INCLUDE_DIR})
if(WIN32)
    target_link_libraries(quendra_boost INTERFACE ws2_32 mswsock)
endif()

add_library(quendra_cli11 INTERFACE)
find_path(QUENDRA_CLI11_INCLUDE_DIR CLI/CLI.hpp REQUIRED)
target_include_directories(quendra_cli11 SYSTEM INTERFACE ${QUENDRA_CLI11_INCLUDE_DIR})
