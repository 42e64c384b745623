# `cmake --install BUILD --prefix P`: P/bin/quorel and P/bin/quorel-host; the components
# Quorel.so and Pravel.so with their text.mdb, and quorel's export module, in P/lib/quorel; the manual page in P/share/man/man1. Our own
# libraries are static, so the installed programs need no run path of ours.
install(TARGETS quorel RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
if(TARGET quorel-host)
    install(TARGETS quorel-host RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
install(TARGETS Quorel Pravel quorel-export LIBRARY DESTINATION ${QUOREL_INSTALL_COMPONENTDIR})
install(FILES ${PROJECT_BINARY_DIR}/component/text.mdb DESTINATION ${QUOREL_INSTALL_COMPONENTDIR})
install(FILES ${PROJECT_SOURCE_DIR}/docs/quorel.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
# The Python module where the system Python finds it (P/lib/python3/dist-packages), with its type
# hints; it reads the texts of P/lib/quorel. The QGIS plugin in P/share/quorel/qgis.
if(QUOREL_BUILD_PYTHON)
    install(TARGETS quorel_python LIBRARY DESTINATION ${QUOREL_INSTALL_PYTHONDIR})
    install(FILES ${PROJECT_SOURCE_DIR}/python/quorel.pyi DESTINATION ${QUOREL_INSTALL_PYTHONDIR})
    install(DIRECTORY ${QUOREL_QGIS_PLUGIN_DIR} DESTINATION ${QUOREL_INSTALL_QGISDIR})
endif()

# `cpack -G DEB` in the build folder, or the `package` target: a Debian package installed under
# /usr, its library dependencies found by dpkg-shlibdeps (package dpkg-dev).
set(QUOREL_PACKAGE_CONTACT "Quorel developers" CACHE STRING "Maintainer of the Debian package")
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME quorel)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT ${QUOREL_PACKAGE_CONTACT})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "Fuzzy classification criteria from numeric attributes of polygon shapefiles")
set(CPACK_PACKAGE_DESCRIPTION
    "Quorel turns a numeric attribute of a polygon layer into a fuzzy membership degree stored \
as a new field, and keeps a .fzy metadata file beside each shapefile. The package holds the \
quorel command line, the quorel-host desktop GIS and the Quorel and Pravel components it \
loads, the Python module quorel and the QGIS Processing plugin quorel_processing.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION science)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Loaded at run time, so dpkg-shlibdeps cannot see them: the desktop host's window system
# plug-in; the Python the module is built for (its ABI) and NumPy, which it hands arrays to.
set(CPACK_DEBIAN_PACKAGE_DEPENDS qt6-qpa-plugins)
if(QUOREL_BUILD_PYTHON)
    string(APPEND CPACK_DEBIAN_PACKAGE_DEPENDS
        ", python3 (>= ${Python_VERSION_MAJOR}.${Python_VERSION_MINOR})"
        ", python3 (<< ${Python_VERSION_MAJOR}.${Python_VERSION_MINOR}.99)"
        ", python3-numpy")
    # The plugin needs QGIS; the module does not.
    set(CPACK_DEBIAN_PACKAGE_SUGGESTS "qgis, python3-qgis")
endif()
include(CPack)
