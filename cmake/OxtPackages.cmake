# The Debian packages, one for each component that is installed. ./package builds them.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME oxtfs)
set(CPACK_PACKAGE_VENDOR Oxtfs)
set(CPACK_PACKAGE_CONTACT "Oxtfs maintainers <maintainers@users.noreply.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # it would stand above each package's own
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
  WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${CPACK_PACKAGE_CONTACT})
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_COMPONENTS_ALL)

# oxt_package(COMPONENT NAME SCRIPT...): the package's name and maintainer scripts. Its description, first line and text,
# is in packaging/debian/COMPONENT.description.
function(oxt_package component name)
  string(TOUPPER ${component} upper)
  set(scripts)
  foreach(script ${ARGN})
    set(output ${CMAKE_CURRENT_BINARY_DIR}/debian/${component}/${script})
    configure_file(debian/${component}.${script}.in ${output} @ONLY FILE_PERMISSIONS
      OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
    list(APPEND scripts ${output})
  endforeach()
  file(READ debian/${component}.description description)
  string(STRIP "${description}" description)
  install(FILES debian/copyright DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${name} COMPONENT ${component})
  install(FILES debian/${component}.lintian-overrides DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides
    RENAME ${name} COMPONENT ${component})
  packaging_compressed(${CMAKE_CURRENT_SOURCE_DIR}/debian/changelog changelog
    ${CMAKE_INSTALL_DATADIR}/doc/${name} ${component})
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name} PARENT_SCOPE)
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${description}" PARENT_SCOPE)
  set(CPACK_DEBIAN_${upper}_PACKAGE_CONTROL_EXTRA "${scripts}" PARENT_SCOPE)
  set(CPACK_COMPONENTS_ALL ${CPACK_COMPONENTS_ALL} ${component} PARENT_SCOPE)
endfunction()

oxt_package(provider oxtfs-provider postinst prerm postrm)
oxt_package(tools oxtfs-tools postinst prerm postrm)
oxt_package(standin oxtfs-agent-standin postinst prerm postrm)

set(CPACK_DEBIAN_PROVIDER_PACKAGE_RECOMMENDS "sblim-wbemcli")
set(CPACK_DEBIAN_PROVIDER_PACKAGE_SUGGESTS "oxtfs-tools, oxtfs-agent-standin")
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "oxtfs-provider (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS "oxtfs-agent-standin, prometheus-node-exporter, bash-completion")
set(CPACK_DEBIAN_STANDIN_PACKAGE_DEPENDS "oxtfs-provider")

# Settings that dpkg keeps when an administrator has changed them.
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/debian/tools/conffiles "${OXT_SETTINGS_FILE}\n")
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/debian/provider/conffiles "${OXT_SETTINGS_DIR}/wbemcli.ind\n")
list(APPEND CPACK_DEBIAN_TOOLS_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_BINARY_DIR}/debian/tools/conffiles)
list(APPEND CPACK_DEBIAN_PROVIDER_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_BINARY_DIR}/debian/provider/conffiles)

include(CPack)
