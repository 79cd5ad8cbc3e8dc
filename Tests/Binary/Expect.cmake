# Comparisons of lists for the checks beside this file.

# The list `found` has exactly the members that follow it, in any order.
function(expect_same what found)
    set(wanted ${ARGN})
    list(SORT found)
    list(SORT wanted)
    if(NOT found STREQUAL wanted)
        message(FATAL_ERROR "${what}:\n    expected  ${wanted}\n    found     ${found}")
    endif()
    message(STATUS "${what}: ${found}")
endfunction()

# The list `found` is not empty and has no member but those that follow it.
function(expect_within what found)
    set(others ${found})
    list(REMOVE_ITEM others ${ARGN})
    if(NOT found OR others)
        message(FATAL_ERROR "${what}:\n    allowed   ${ARGN}\n    found     ${found}\n    of these not allowed   ${others}")
    endif()
    message(STATUS "${what}: ${found}")
endfunction()
