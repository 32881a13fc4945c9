# Debian packages, made by cpack: what is installed goes into the package that its COMPONENT names.
#   ivra-bsp        the programs, and what belongs to them
#   ivra-virtual    simulated boards
set(CPACK_COMPONENTS_ALL ivra-bsp ivra-virtual)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "The developers of ivra-bsp <ivra-bsp@packages.invalid>")

foreach(package IN LISTS CPACK_COMPONENTS_ALL)
    set(changes ${CMAKE_BINARY_DIR}/packages/${package}/changelog.gz)
    add_custom_command(OUTPUT ${changes}
        COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/packages/${package}
        COMMAND ${PROJECT_SOURCE_DIR}/packaging/debian-changelog ${PROJECT_SOURCE_DIR}/CHANGELOG.md ${package}
                ${CPACK_PACKAGE_CONTACT} | gzip -9n > ${changes}
        DEPENDS ${PROJECT_SOURCE_DIR}/CHANGELOG.md ${PROJECT_SOURCE_DIR}/packaging/debian-changelog
        COMMENT "Making the changelog of ${package}"
        VERBATIM)
    list(APPEND all_changes ${changes})
    install(FILES ${changes} ${PROJECT_SOURCE_DIR}/packaging/copyright
            DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${package})
endforeach()
add_custom_target(changelogs ALL DEPENDS ${all_changes})

set(CPACK_GENERATOR DEB)
set(CPACK_SOURCE_GENERATOR "")
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)
# The maker's libraries, and the stubs in their place, are of no package: they are found, and no dependency is written.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${IVRA_MAKER_FOLDERS} ${CMAKE_BINARY_DIR}/stubs)

set(CPACK_DEBIAN_IVRA-BSP_PACKAGE_NAME ivra-bsp)
set(CPACK_DEBIAN_IVRA-BSP_PACKAGE_SUGGESTS ivra-virtual)
set(CPACK_COMPONENT_IVRA-BSP_DESCRIPTION "tools for FPGA accelerator boards
They show and manage the FPGA accelerator boards of a host: model, serial
number, MAC addresses, flash layout, boot image, sensors, transceivers. They
read them for scripts, monitoring plugins and Prometheus, too.
.
Boards are reached through the libraries of their maker, which come with the
boards and are not part of this package. Without them, and without boards, the
package ivra-virtual simulates some.")
set(CPACK_DEBIAN_IVRA-BSP_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/postinst
    ${PROJECT_SOURCE_DIR}/packaging/prerm ${PROJECT_SOURCE_DIR}/packaging/postrm)

set(CPACK_DEBIAN_IVRA-VIRTUAL_PACKAGE_NAME ivra-virtual)
set(CPACK_DEBIAN_IVRA-VIRTUAL_PACKAGE_RECOMMENDS ivra-bsp)
set(CPACK_COMPONENT_IVRA-VIRTUAL_DESCRIPTION "simulated FPGA accelerator boards
The platform libraries of FPGA accelerator boards over simulated ones, with
their controllers, buses and modules, and a command to make racks of them, to
run programs on them, and to change them meanwhile: to try, to rehearse, to
test.
.
They lie where no loader looks by itself: without the command ivra-virtual
nothing leads to them.")

# What makes no package that a host could use. Asked when packages are made, not before.
if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    list(APPEND CPACK_OBSTACLES "CMAKE_INSTALL_PREFIX is ${CMAKE_INSTALL_PREFIX}, not /usr")
endif()
if(NOT IVRA_PLATFORM STREQUAL "system")
    list(APPEND CPACK_OBSTACLES "IVRA_PLATFORM is ${IVRA_PLATFORM}, not system")
endif()
if(NOT CMAKE_BUILD_TYPE STREQUAL "Release" OR IVRA_SANITIZE)
    list(APPEND CPACK_OBSTACLES "it is no release build")
endif()
if(NOT TARGET ivra-bsp-exporter)
    list(APPEND CPACK_OBSTACLES "ivra-bsp-exporter is not built")
endif()

# Two builds in one folder make the same packages: their files are of the day that the changelog says.
file(STRINGS ${PROJECT_SOURCE_DIR}/CHANGELOG.md CPACK_RELEASE_DATE REGEX "^## [0-9.]+, [0-9-]+$" LIMIT_COUNT 1)
string(REGEX REPLACE ".*, " "" CPACK_RELEASE_DATE "${CPACK_RELEASE_DATE}")
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_SOURCE_DIR}/packaging/cpack.cmake)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/permissions.cmake)
include(CPack)
