# Read by cpack before it makes packages of a kind. Debian packages name a maintainer, and need two programs that find
# out on which others they depend: without dpkg-shlibdeps that would be left out silently.
if(CPACK_GENERATOR STREQUAL "DEB")
  if(NOT CPACK_PACKAGE_CONTACT MATCHES "^[^<>]+ <[^<> ]+@[^<> ]+>$")
    message(FATAL_ERROR "Say who maintains the Debian packages, then run cpack again:\n"
      "  cmake --preset package -DOXU_MAINTAINER='NAME <ADDRESS>'")
  endif()
  foreach(program IN ITEMS file dpkg-shlibdeps)
    find_program(OXU_PROGRAM ${program} NO_CACHE)
    if(NOT OXU_PROGRAM)
      message(FATAL_ERROR "The program ${program} is missing, which finds out what the packages depend on:\n"
        "  apt-get install file dpkg-dev")
    endif()
    unset(OXU_PROGRAM)
  endforeach()
endif()
