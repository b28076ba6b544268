# Installation and the Debian package of the host tools.
#
#   <prefix>/bin/dcp30ctl, <prefix>/bin/dcp30-sim
#   <prefix>/lib/dcp30/libdcp30.so (the plug-in), libsdc35.so (stand-in companion)
#   <prefix>/share/man/man1/dcp30ctl.1.gz, dcp30-sim.1.gz (from their --help)
#   <prefix>/share/bash-completion/completions/dcp30ctl
#
# The executables find the libraries by $ORIGIN (dcp30ctl looks in
# ../lib/dcp30 beside itself, then ../lib as in the build tree), so the
# tree works wherever it is unpacked. `make package` leaves the .deb in build/.
set(DCP_LIBRARY_DIR lib/${PROJECT_NAME})
# Installing and packaging take the build as it is (`make package` builds
# first through dev.sh): a package test running beside the other suites
# must not relink the binaries they run.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)

install(TARGETS dcp30ctl dcp30-sim RUNTIME DESTINATION bin)
install(TARGETS dcp30 sdc35 LIBRARY DESTINATION ${DCP_LIBRARY_DIR})
set_target_properties(dcp30ctl dcp30-sim PROPERTIES INSTALL_RPATH "$ORIGIN/../${DCP_LIBRARY_DIR}")
# The plug-in needs nothing beside it (Qt comes from the system) and ships
# without a run path; the stand-in companion the same.
set_target_properties(sdc35 PROPERTIES INSTALL_RPATH "")
install(FILES ${PROJECT_SOURCE_DIR}/tools/dcp30ctl/dcp30ctl.bash-completion
        DESTINATION share/bash-completion/completions RENAME dcp30ctl)

# Man pages are made by running the programs, which a cross build cannot,
# and which a sanitizer build would turn into a leak report.
find_program(DCP_HELP2MAN help2man)
if(DCP_HELP2MAN AND NOT CMAKE_CROSSCOMPILING AND NOT DCP_SANITIZE AND NOT DCP_TSAN)
    set(man_pages)
    # dcp30ctl's page also carries every command's help.
    set(commands ${CMAKE_BINARY_DIR}/man/dcp30ctl-commands.h2m)
    add_custom_command(OUTPUT ${commands}
        COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/man
        COMMAND bash ${PROJECT_SOURCE_DIR}/tools/dcp30ctl/man-commands.sh
                $<TARGET_FILE:dcp30ctl> ${commands}
        DEPENDS dcp30ctl ${PROJECT_SOURCE_DIR}/tools/dcp30ctl/man-commands.sh
        VERBATIM)
    foreach(program dcp30ctl dcp30-sim)
        set(page ${CMAKE_BINARY_DIR}/man/${program}.1)
        if(program STREQUAL dcp30ctl)
            set(summary "transfer, check, compare and plot DCP30 controller programs")
            set(include --include=${commands})
        else()
            set(summary "a DCP30 program controller simulated on a pseudo-terminal")
            set(include)
        endif()
        # The version string is given: --version of dcp30ctl also names the
        # plug-in it finds, which is the build tree's here.
        add_custom_command(OUTPUT ${page}.gz
            COMMAND ${DCP_HELP2MAN} --no-info --no-discard-stderr --name=${summary}
                    --version-string=${PROJECT_VERSION} ${include}
                    --output=${page} $<TARGET_FILE:${program}>
            COMMAND gzip -9nf ${page}
            DEPENDS ${program} ${commands}
            COMMENT "Man page ${program}.1 from its --help"
            VERBATIM)
        list(APPEND man_pages ${page}.gz)
    endforeach()
    add_custom_target(manpages ALL DEPENDS ${man_pages})
    install(FILES ${man_pages} DESTINATION share/man/man1)
    # The package built from this tree, unpacked into a temporary root and
    # run from there (it needs the man pages, hence here).
    add_test(NAME test_package
        COMMAND bash ${PROJECT_SOURCE_DIR}/tests/package/test_package.sh ${CMAKE_BINARY_DIR})
else()
    message(STATUS "help2man not used (missing, cross or sanitizer build): no man pages")
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME dcp30-tools)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "DCP30 program controller: host tool dcp30ctl, simulator and driver plug-in")
set(CPACK_PACKAGE_DESCRIPTION
    "dcp30ctl reads and writes DCP30 controller programs through the dcp30 driver plug-in, "
    "and checks, shows, compares and plots program files; dcp30-sim simulates the controller "
    "on a pseudo-terminal.")
set(CPACK_PACKAGE_CONTACT "DCP30 driver developers <dcp30-tools@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION electronics)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Installed binaries without their debug information (the build tree keeps it).
set(CPACK_STRIP_FILES ON)
include(CPack)
