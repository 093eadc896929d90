# What `cmake --install` puts where, and the Debian package (`cpack -G DEB` in the build folder). Manual pages and completions
# are made from what the programs print for --help, so the options are described once.

include(GNUInstallDirs)
find_program(TAVO_AWK awk REQUIRED)

# Installs a program with its manual page and its completion: a target, or a script of that name in the folder given behind.
function(tavo_install_program target)
  if(TARGET ${target})
    install(TARGETS ${target} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
    set(program ${target})
  else()
    set(program ${ARGV1}/${target})
    install(PROGRAMS ${program} DESTINATION ${CMAKE_INSTALL_BINDIR})
  endif()
  if(CMAKE_CROSSCOMPILING)
    return()
  endif()
  set(page ${CMAKE_BINARY_DIR}/man/${target}.1)
  set(completion ${CMAKE_BINARY_DIR}/completions/${target})
  file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/man ${CMAKE_BINARY_DIR}/completions)
  set(man_script ${PROJECT_SOURCE_DIR}/cmake/man_page.awk)
  set(completion_script ${PROJECT_SOURCE_DIR}/cmake/completion.awk)
  add_custom_command(
    OUTPUT ${page} ${completion}
    COMMAND ${program} --help > ${page}.help
    COMMAND ${TAVO_AWK} -v name=${target} -v version=${PROJECT_VERSION} -f ${man_script} ${page}.help > ${page}
    COMMAND ${TAVO_AWK} -v name=${target} -f ${completion_script} ${page}.help > ${completion}
    DEPENDS ${program} ${man_script} ${completion_script}
    COMMENT "Manual page and completion of ${target}"
    VERBATIM)
  add_custom_target(${target}-man ALL DEPENDS ${page} ${completion})
  install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES ${completion} DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
endfunction()

tavo_install_program(tavo)
if(TAVO_HAVE_MPI)
  install(TARGETS tavo_mpi LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/tavo)
endif()
if(TAVO_TOOLS)
  tavo_install_program(tavo-convert)
  tavo_install_program(tavo-score)
  tavo_install_program(tavo-simulate)
  tavo_install_program(tavo-report)
  tavo_install_program(tavo-explore ${PROJECT_SOURCE_DIR}/report)
endif()

install(FILES README.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} RENAME copyright)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} PATTERN decisions EXCLUDE)
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tavo)
set(CPACK_PACKAGE_CONTACT "The TAVO developers")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION science)
# The libraries that the programs are linked to, by the packages that have them; needs dpkg-shlibdeps (dpkg-dev).
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
include(CPack)
