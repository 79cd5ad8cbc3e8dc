# Runs at installation: a binary's symbols go into FOLDER/.debug/NAME.debug, and the installed binary keeps a link to that file.

function(make_symbols objcopy built symbols)
    execute_process(COMMAND ${objcopy} --only-keep-debug ${built} ${symbols} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

# The two components are installed separately: the link is made from a copy, which is identical each time.
function(strip_installed objcopy built folder)
    cmake_path(GET built FILENAME name)
    set(symbols ${built}.debug)
    make_symbols(${objcopy} ${built} ${symbols})
    execute_process(COMMAND ${objcopy} --strip-unneeded ${folder}/${name} COMMAND_ERROR_IS_FATAL ANY)
    execute_process(COMMAND ${objcopy} --remove-section=.gnu_debuglink ${folder}/${name} COMMAND_ERROR_IS_FATAL ANY)
    execute_process(COMMAND ${objcopy} --add-gnu-debuglink=${symbols} ${folder}/${name} COMMAND_ERROR_IS_FATAL ANY)
    file(REMOVE ${symbols})
endfunction()

function(install_symbols objcopy built folder)
    cmake_path(GET built FILENAME name)
    message(STATUS "Installing: ${folder}/.debug/${name}.debug")
    file(MAKE_DIRECTORY ${folder}/.debug)
    make_symbols(${objcopy} ${built} ${folder}/.debug/${name}.debug)
    file(CHMOD ${folder}/.debug/${name}.debug PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
endfunction()
