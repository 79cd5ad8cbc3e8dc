# The files that `cmake --install` installs, in four components:
#
#     Runtime       the library, the tracing library, on Linux the platform library; the notices of the libraries they are made with
#     Development   headers, import libraries, the static libraries of the records and of versions, find_package(QuendraHttp) and pkg-config, the documents
#     Programs      quendra and quendra-appliance, the faults that the latter can play
#     Symbols       the symbols of everything above, in .debug folders beside the binaries, where debuggers look for them
#
# CMake/Package.cmake packages them. Docs/Compatibility.md says what the versions promise.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(headerFolder ${CMAKE_INSTALL_INCLUDEDIR}/quendra-http)
set(configFolder ${CMAKE_INSTALL_LIBDIR}/cmake/QuendraHttp)
set(documentFolder ${CMAKE_INSTALL_DATADIR}/doc/quendra-http)

# Raised when programs built with earlier libraries would not run with the new ones.
set(QUENDRA_BINARY_VERSION 1)

set(sharedLibraries QuendraHttp quendra_eventing)
set(platformLibraries -lwinhttp -lole32 -loleaut32 -ladvapi32 -lversion -lwbemuuid)
if(NOT WIN32)
    list(APPEND sharedLibraries quendra_platform)
    set(platformLibraries -lquendra_platform)
endif()
set(programs quendra quendra-appliance)

# A binary finds its libraries wherever the tree is installed.
file(RELATIVE_PATH toLibraries /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
set_target_properties(${sharedLibraries} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${QUENDRA_BINARY_VERSION} INSTALL_RPATH "$ORIGIN")
set_target_properties(${programs} PROPERTIES INSTALL_RPATH "$ORIGIN/${toLibraries}")
set_target_properties(quendra_libraries PROPERTIES EXPORT_NAME Libraries)
set_target_properties(quendra_versions PROPERTIES EXPORT_NAME Versions)
set_target_properties(quendra_eventing PROPERTIES EXPORT_NAME Eventing)
set_target_properties(quendra_platform PROPERTIES EXPORT_NAME Platform)

install(TARGETS QuendraHttp quendra_eventing quendra_platform quendra_libraries quendra_versions EXPORT QuendraHttpTargets
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT Runtime
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Runtime NAMELINK_COMPONENT Development
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Development
    INCLUDES DESTINATION ${headerFolder})
install(TARGETS ${programs} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT Programs)
install(FILES Appliance/Faults.json DESTINATION ${CMAKE_INSTALL_DATADIR}/quendra-http COMPONENT Programs)
if(NOT WIN32)
    # bash looks for a command's completion here.
    install(FILES ${PROJECT_BINARY_DIR}/Client/quendra.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME quendra COMPONENT Programs)
endif()

# The headers, below a folder of their own that stands for this project's include folders.
install(DIRECTORY Includes/QuendraHttp Platform/Includes/QuendraHttp DESTINATION ${headerFolder} COMPONENT Development PATTERN NativeHttp.h EXCLUDE)
install(FILES Eventing/Eventing.h Eventing/EventSink.h Eventing/Timeline.h DESTINATION ${headerFolder}/Eventing COMPONENT Development)
list(TRANSFORM QUENDRA_CLIENT_HEADERS PREPEND Libraries/Includes/ OUTPUT_VARIABLE recordHeaders)
install(FILES ${recordHeaders} QuendraHttp/VersionNumberUtil.h DESTINATION ${headerFolder} COMPONENT Development)

install(FILES README.md CONTRIBUTING.md CHANGELOG.md DESTINATION ${documentFolder} COMPONENT Development)
install(DIRECTORY Docs DESTINATION ${documentFolder} COMPONENT Development
    FILES_MATCHING PATTERN "*.md" PATTERN "*.svg" PATTERN "Examples/*.cpp")
install(FILES Appliance/Faults.json DESTINATION ${documentFolder}/Appliance COMPONENT Development)

# find_package(QuendraHttp) and pkg-config.
install(EXPORT QuendraHttpTargets NAMESPACE QuendraHttp:: DESTINATION ${configFolder} COMPONENT Development)
configure_package_config_file(CMake/QuendraHttpConfig.cmake.in ${PROJECT_BINARY_DIR}/QuendraHttpConfig.cmake
    INSTALL_DESTINATION ${configFolder} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/QuendraHttpConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/QuendraHttpConfig.cmake ${PROJECT_BINARY_DIR}/QuendraHttpConfigVersion.cmake
    DESTINATION ${configFolder} COMPONENT Development)

file(RELATIVE_PATH toPrefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /.)
string(REGEX REPLACE "/$" "" toPrefix ${toPrefix})
list(JOIN platformLibraries " " platformLibraries)
configure_file(CMake/QuendraHttp.pc.in ${PROJECT_BINARY_DIR}/QuendraHttp.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/QuendraHttp.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT Development)

# quendra_install_notice(NAME places...): installs the licence of a library, from the first of the places that exists on this machine.
function(quendra_install_notice name)
    foreach(place IN LISTS ARGN)
        file(GLOB notice ${place})
        if(notice)
            install(FILES ${notice} DESTINATION ${documentFolder}/notices RENAME ${name}.txt COMPONENT Runtime)
            return()
        endif()
    endforeach()
    message(WARNING "No licence of ${name} was found: a package made here would lack its notice")
endfunction()

set(systemDocs /usr/share/doc)
set(portDocs ${VCPKG_INSTALLED_DIR}/${VCPKG_TARGET_TRIPLET}/share)
set(crossSources ${PROJECT_SOURCE_DIR}/build/windows-deps/sources)
quendra_install_notice(JsonCpp ${systemDocs}/libjsoncpp-dev/copyright ${crossSources}/libjsoncpp-*/debian/copyright ${portDocs}/jsoncpp/copyright)
quendra_install_notice(Boost ${systemDocs}/libboost1.81-dev/copyright ${portDocs}/boost-beast/copyright)
quendra_install_notice(CLI11 ${systemDocs}/libcli11-dev/copyright ${portDocs}/cli11/copyright)
if(MINGW)
    # Linked into every binary.
    quendra_install_notice(GCC-runtime ${systemDocs}/gcc-mingw-w64-base/copyright)
    quendra_install_notice(mingw-w64-runtime ${systemDocs}/mingw-w64-x86-64-dev/copyright)
elseif(NOT WIN32)
    quendra_install_notice(libcurl ${systemDocs}/libcurl4-openssl-dev/copyright)
    quendra_install_notice(OpenSSL ${systemDocs}/libssl-dev/copyright)
    quendra_install_notice(utfcpp ${systemDocs}/libutfcpp-dev/copyright)
endif()
if(QUENDRA_RSYNC_INCLUDE_DIR AND QUENDRA_RSYNC_LIBRARY)
    quendra_install_notice(librsync ${systemDocs}/librsync-dev/copyright)
endif()

# Separates symbols from the binaries. MSVC does that by itself.
function(quendra_split_symbols target component folder)
    if(MSVC)
        install(FILES $<TARGET_PDB_FILE:${target}> DESTINATION ${folder} COMPONENT Symbols OPTIONAL)
        return()
    endif()
    set(call "include(\"${PROJECT_SOURCE_DIR}/CMake/SplitSymbols.cmake\")\n")
    string(APPEND call "set(objcopy \"${CMAKE_OBJCOPY}\")\nset(built \"$<TARGET_FILE:${target}>\")\n")
    string(APPEND call "set(folder \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${folder}\")\n")
    install(CODE "${call}strip_installed(\"\${objcopy}\" \"\${built}\" \"\${folder}\")" COMPONENT ${component})
    install(CODE "${call}install_symbols(\"\${objcopy}\" \"\${built}\" \"\${folder}\")" COMPONENT Symbols)
endfunction()

if(WIN32)
    set(libraryFolder ${CMAKE_INSTALL_BINDIR})
else()
    set(libraryFolder ${CMAKE_INSTALL_LIBDIR})
endif()
foreach(target IN LISTS sharedLibraries)
    quendra_split_symbols(${target} Runtime ${libraryFolder})
endforeach()
if(NOT MSVC)
    foreach(target quendra_libraries quendra_versions)
        install(CODE "execute_process(COMMAND \"${CMAKE_OBJCOPY}\" --strip-debug
            \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/$<TARGET_FILE_NAME:${target}>\" COMMAND_ERROR_IS_FATAL ANY)"
            COMPONENT Development)
    endforeach()
endif()
foreach(target IN LISTS programs)
    quendra_split_symbols(${target} Programs ${CMAKE_INSTALL_BINDIR})
endforeach()
