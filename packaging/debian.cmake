# The Debian package webapi-host (scripts/package): the host, the plug-in and its core
# library, the systemd unit, the example settings, the schema and webapi-add-customer.
# Installed below /usr; the host finds its library and the plug-in relative to itself, so
# the unpacked tree works wherever it lies.

# The unit and the settings name /usr/local, where "cmake --install" puts things by default;
# the package's copies name its own prefix.
set(WEBAPI_PACKAGE_PREFIX /usr)
foreach(file webapi-host.service webapi-host.ini)
    file(READ ${CMAKE_CURRENT_LIST_DIR}/${file} text)
    string(REPLACE "/usr/local/" "${WEBAPI_PACKAGE_PREFIX}/" text "${text}")
    file(WRITE ${CMAKE_BINARY_DIR}/packaging/${file} "${text}")
endforeach()
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
    ${CMAKE_CURRENT_LIST_DIR}/webapi-host.service ${CMAKE_CURRENT_LIST_DIR}/webapi-host.ini)

install(FILES ${CMAKE_BINARY_DIR}/packaging/webapi-host.service DESTINATION lib/systemd/system)
install(FILES ${CMAKE_BINARY_DIR}/packaging/webapi-host.ini DESTINATION share/doc/webapi-host/examples)
install(FILES ${CMAKE_SOURCE_DIR}/database/schema/customer.sql ${CMAKE_SOURCE_DIR}/database/schema/infodb.sql
        DESTINATION share/webapi/schema)
install(PROGRAMS ${CMAKE_SOURCE_DIR}/scripts/add-customer DESTINATION bin RENAME webapi-add-customer)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME webapi-host)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "webapi maintainers <webapi@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "REST interface of the attendance and access-control system")
set(CPACK_PACKAGING_INSTALL_PREFIX ${WEBAPI_PACKAGE_PREFIX})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
# Libraries from dpkg-shlibdeps; what is loaded at run time, or run by webapi-add-customer, by name.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libqt5sql5-mysql, mariadb-client | default-mysql-client")
# Private libraries (no soname): the host finds them by its RUNPATH, no ldconfig needed.
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/postinst)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
