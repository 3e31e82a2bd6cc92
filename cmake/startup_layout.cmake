# The start of a static program, up to its first byte on the line, runs a few hundred functions of
# ours, the C++ library's and the C library's, spread over the whole program. Linked in the order
# of their first run (cmake/startup-order.txt, written by scripts/startup-order.py), they share a
# few pages, and the start takes a third as many page faults on its code. That order needs lld and
# each function in a section of its own; without lld the program links as before, unordered.
find_program(KW_LLD ld.lld)
set(KW_STARTUP_ORDER ${CMAKE_SOURCE_DIR}/cmake/startup-order.txt)
set(KW_LAY_OUT_STARTUP OFF)
if(NOT WIN32 AND NOT KW_SANITIZE AND NOT KW_FUZZ)
  if(KW_LLD)
    set(KW_LAY_OUT_STARTUP ON)
    add_compile_options(-ffunction-sections)  # so that each function can be placed on its own
  else()
    message(STATUS "No ld.lld: the program's start is linked in no particular order (slower)")
  endif()
endif()

# Links the static `program` in the order above, if it can.
function(kw_lay_out_startup program)
  if(KW_LAY_OUT_STARTUP)
    target_link_options(${program} PRIVATE -fuse-ld=lld
                        -Wl,--symbol-ordering-file=${KW_STARTUP_ORDER}
                        -Wl,--no-warn-symbol-ordering)
    set_property(TARGET ${program} APPEND PROPERTY LINK_DEPENDS ${KW_STARTUP_ORDER})
  endif()
endfunction()
