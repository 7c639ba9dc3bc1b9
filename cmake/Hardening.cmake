# Hardens release builds: position-independent executables, full RELRO, stack protectors, stack
# clash protection, checked library calls and control-flow protection. scripts/check-hardening
# reads the linked programs and fails when one of these is missing.
#
# Only for Release: _FORTIFY_SOURCE needs optimisation, and a sanitizer has checks of its own that
# these would conceal. A flag that the compiler or the linker does not accept is left out.
if(SANITIZE OR COVERAGE)
  return()
endif()

include(CheckCXXCompilerFlag)
include(CheckLinkerFlag)

set(compiler_flags
  -fPIE
  -fstack-protector-strong
  -fstack-clash-protection
  -fcf-protection=full           # x86: landing pads for indirect branches, shadow stack
  -mbranch-protection=standard)  # Arm: the same
foreach(flag IN LISTS compiler_flags)
  string(MAKE_C_IDENTIFIER "compiler_accepts${flag}" accepted)
  check_cxx_compiler_flag(${flag} ${accepted})
  if(${accepted})
    add_compile_options($<$<CONFIG:Release>:${flag}>)
  endif()
endforeach()
# Undefined first: a distribution's compiler may define a lower level by itself.
add_compile_options("$<$<CONFIG:Release>:SHELL:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3>")

foreach(flag -pie -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
  string(MAKE_C_IDENTIFIER "linker_accepts${flag}" accepted)
  check_linker_flag(CXX ${flag} ${accepted})
  if(${accepted})
    add_link_options($<$<CONFIG:Release>:${flag}>)
  endif()
endforeach()
