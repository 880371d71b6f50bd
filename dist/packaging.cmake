# What `cmake --install` puts beside the tool (manual page, bash completion, documents), the
# emulator's installation, and the two Debian packages CPack makes of them:
#
#   vorn-tool           component "tool": vorn_tool, vornctl, the TLS module vorn_tls.so,
#                       vorn_tool(8), vornctl(8), their bash completions, the recovery unit,
#                       vornctl's metrics service and timer, the alerting rules for vornctl's
#                       metrics, and the maintainer scripts that create /etc/vorn.conf
#   vorn-tool-emulator  component "emulator": both emulated driver libraries and the TLS
#                       plugin under a private directory (never the loader's default path),
#                       kopa-emu and its manual page
#
# A package build configures with -DCMAKE_INSTALL_PREFIX=/usr (scripts/package.sh does).
# `cmake --install` installs the tool component and creates /etc/vorn.conf when missing
# (component "conf", never packaged); the emulator only on request: --component emulator.
# Whatever is installed and in no package is listed in dist/unpackaged.list, with its reason:
# scripts/check_unpackaged.sh fails on anything else.

find_program(VORN_GZIP gzip REQUIRED)

set(VORN_DEB_NAME vorn-tool)
set(VORN_EMU_DEB_NAME vorn-tool-emulator)
set(VORN_DIST_DIR ${CMAKE_BINARY_DIR}/dist)
# The emulator's private library directory: the loader never looks there by itself.
set(VORN_EMU_LIBDIR ${CMAKE_INSTALL_LIBDIR}/vorn-emu)
set(VORN_EMU_FULL_LIBDIR ${CMAKE_INSTALL_FULL_LIBDIR}/vorn-emu)

# Manual pages and changelogs are shipped as gzip -9n (no name, no time stamp), as Debian wants.
function(vorn_gzip_file src dst)
  add_custom_command(OUTPUT ${dst}
    COMMAND ${VORN_GZIP} -9nc ${src} > ${dst}
    DEPENDS ${src}
    VERBATIM)
endfunction()

configure_file(${PROJECT_SOURCE_DIR}/dist/man/kopa-emu.1.in ${VORN_DIST_DIR}/kopa-emu.1 @ONLY)
configure_file(${PROJECT_SOURCE_DIR}/dist/emulator/README.in ${VORN_DIST_DIR}/README.emulator @ONLY)
vorn_gzip_file(${PROJECT_SOURCE_DIR}/dist/man/vorn_tool.8 ${VORN_DIST_DIR}/vorn_tool.8.gz)
vorn_gzip_file(${PROJECT_SOURCE_DIR}/dist/man/vornctl.8 ${VORN_DIST_DIR}/vornctl.8.gz)
vorn_gzip_file(${VORN_DIST_DIR}/kopa-emu.1 ${VORN_DIST_DIR}/kopa-emu.1.gz)
vorn_gzip_file(${PROJECT_SOURCE_DIR}/dist/debian/changelog ${VORN_DIST_DIR}/changelog.gz)
add_custom_target(vorn_dist_files ALL
  DEPENDS ${VORN_DIST_DIR}/vorn_tool.8.gz ${VORN_DIST_DIR}/vornctl.8.gz ${VORN_DIST_DIR}/kopa-emu.1.gz
          ${VORN_DIST_DIR}/changelog.gz)

# ---- component "tool" (the rules of the programs, the module and the units are beside their
# targets: CMakeLists.txt, vornctl/, tls/) ----
install(FILES ${VORN_DIST_DIR}/vorn_tool.8.gz ${VORN_DIST_DIR}/vornctl.8.gz
  DESTINATION ${CMAKE_INSTALL_MANDIR}/man8 COMPONENT tool)
install(FILES ${PROJECT_SOURCE_DIR}/dist/bash-completion/vorn_tool
  ${PROJECT_SOURCE_DIR}/dist/bash-completion/vornctl
  DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/bash-completion/completions COMPONENT tool)
install(FILES ${PROJECT_SOURCE_DIR}/dist/debian/copyright ${VORN_DIST_DIR}/changelog.gz
  DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${VORN_DEB_NAME} COMPONENT tool)
# The alerting rules for vornctl's metrics, as tests/prometheus tests them.
install(FILES ${PROJECT_SOURCE_DIR}/dist/prometheus/vorn.rules.yml
  DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/vorn-tool/prometheus COMPONENT tool)

# ---- component "emulator": on request only ----
install(TARGETS drvkopa_host kelvar_hal kopa_emu_tls
  LIBRARY DESTINATION ${VORN_EMU_LIBDIR} COMPONENT emulator EXCLUDE_FROM_ALL)
install(TARGETS kopa-emu
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT emulator EXCLUDE_FROM_ALL)
install(FILES ${VORN_DIST_DIR}/kopa-emu.1.gz
  DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT emulator EXCLUDE_FROM_ALL)
install(FILES ${PROJECT_SOURCE_DIR}/dist/debian/copyright ${VORN_DIST_DIR}/changelog.gz
  DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${VORN_EMU_DEB_NAME}
  COMPONENT emulator EXCLUDE_FROM_ALL)
install(FILES ${VORN_DIST_DIR}/README.emulator
  DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${VORN_EMU_DEB_NAME}
  RENAME README COMPONENT emulator EXCLUDE_FROM_ALL)

# ---- what the build installs and makes, for scripts/check_unpackaged.sh ----
# Written once every install rule is known (at the end of the top directory): the install
# components, and the file name of every program and shared library the build makes.
function(vorn_collect_built dir out)
  get_property(targets DIRECTORY ${dir} PROPERTY BUILDSYSTEM_TARGETS)
  set(found "")
  foreach(t IN LISTS targets)
    get_target_property(type ${t} TYPE)
    if(type MATCHES "^(EXECUTABLE|SHARED_LIBRARY|MODULE_LIBRARY)$")
      list(APPEND found "$<TARGET_FILE_NAME:${t}>")
    endif()
  endforeach()
  get_property(subdirs DIRECTORY ${dir} PROPERTY SUBDIRECTORIES)
  foreach(sub IN LISTS subdirs)
    vorn_collect_built(${sub} sub_found)
    list(APPEND found ${sub_found})
  endforeach()
  set(${out} ${found} PARENT_SCOPE)
endfunction()
function(vorn_write_install_lists)
  get_cmake_property(components COMPONENTS)
  vorn_collect_built(${PROJECT_SOURCE_DIR} built)
  list(JOIN components "\n" components)
  list(JOIN built "\n" built)
  file(GENERATE OUTPUT ${CMAKE_BINARY_DIR}/install-components.txt CONTENT "${components}\n")
  file(GENERATE OUTPUT ${CMAKE_BINARY_DIR}/built-files.txt CONTENT "${built}\n")
endfunction()
cmake_language(DEFER DIRECTORY ${PROJECT_SOURCE_DIR} CALL vorn_write_install_lists)

# ---- the Debian packages: of a production build only ----
# A test build's tool works under $VORN_TEST_ROOT and a sanitizer build needs its runtime:
# neither may become a package.
if(VORN_TEST_PATHS OR VORN_SANITIZE)
  return()
endif()

set(VORN_PACKAGE_MAINTAINER "vorn_tool maintainers <vorn-tool@example.org>"
  CACHE STRING "Maintainer field of the Debian packages")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ${VORN_DEB_NAME})
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "vorn_tool")
set(CPACK_PACKAGE_CONTACT ${VORN_PACKAGE_MAINTAINER})
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_OUTPUT_FILE_PREFIX ${CMAKE_BINARY_DIR})
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL tool emulator)
set(CPACK_COMPONENTS_GROUPING IGNORE)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_TOOL_PACKAGE_NAME ${VORN_DEB_NAME})
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_TOOL_DESCRIPTION
"configure the network ports of NPU accelerator devices
vorn_tool configures and inspects the Ethernet/RoCE ports of up to sixteen
NPU accelerator devices of a host through the accelerator driver's
device-management library: addresses, gateway, routes, MAC, MTU, link, RoCE
UDP port, QoS, ARP, diagnostics and the TLS suite of the management link.
Settings are saved in /etc/vorn.conf and replayed after a device reset by
`vorn_tool -a -cfg recovery`, which the unit vorn-recovery.service runs at
boot.
.
vornctl shows every device of the host beside its saved settings, verifies
them for drift, lints the fabric and writes metrics for node_exporter
(vornctl-metrics.timer, not enabled by the package).
.
The driver libraries (libdrvkopa_host.so, libkelvar_hal.so) come with the
accelerator driver, not with this package.")
set(CPACK_DEBIAN_TOOL_PACKAGE_CONTROL_EXTRA
  ${PROJECT_SOURCE_DIR}/dist/debian/postinst ${PROJECT_SOURCE_DIR}/dist/debian/postrm)

set(CPACK_DEBIAN_EMULATOR_PACKAGE_NAME ${VORN_EMU_DEB_NAME})
set(CPACK_DEBIAN_EMULATOR_PACKAGE_SECTION misc)
set(CPACK_DEBIAN_EMULATOR_PACKAGE_ENHANCES ${VORN_DEB_NAME})
set(CPACK_DEBIAN_EMULATOR_DESCRIPTION
"emulated NPU accelerator devices for evaluating vorn_tool
Stand-ins for the accelerator driver's two libraries (same sonames, same C
ABI) with an emulated firmware behind them, and kopa-emu, the program that
sets up, inspects and breaks the emulated host. For evaluation hosts without
devices.
.
The libraries live in a directory outside the dynamic loader's search path,
so they never shadow a real driver: a run uses them only when asked, with
LD_LIBRARY_PATH naming the directory:
 ${VORN_EMU_FULL_LIBDIR}")

include(CPack)
