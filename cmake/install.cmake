# Libraries, headers, the program, a CMake package and pkg-config files, all relocatable.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/morlu)
set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(DIRECTORY include/morlu DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY scenegraph/include/osg DESTINATION ${MORLU_LAYER_INCLUDEDIR})
install(DIRECTORY scenegraph/io/include/osg DESTINATION ${MORLU_LAYER_INCLUDEDIR})

get_property(libraries GLOBAL PROPERTY MORLU_LIBRARIES)
install(TARGETS ${libraries} EXPORT morlu-targets)
install(EXPORT morlu-targets NAMESPACE morlu:: DESTINATION ${package_dir})
install(TARGETS morlu_program)

configure_package_config_file(cmake/morlu-config.cmake.in morlu-config.cmake
                              INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(morlu-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/morlu-config.cmake
              ${PROJECT_BINARY_DIR}/morlu-config-version.cmake DESTINATION ${package_dir})

# morlu_pkgconfig(<file> <library> <description> <include dir below the prefix's> <required files>)
file(RELATIVE_PATH MORLU_PC_PREFIX /${pkgconfig_dir} /)
function(morlu_pkgconfig MORLU_PC_NAME MORLU_PC_LIBRARY MORLU_PC_DESCRIPTION MORLU_PC_INCLUDE
         MORLU_PC_REQUIRES)
  configure_file(cmake/morlu.pc.in ${MORLU_PC_NAME}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${MORLU_PC_NAME}.pc DESTINATION ${pkgconfig_dir})
endfunction()
morlu_pkgconfig(morlu-scenegraph morlu_scenegraph "Scene-graph layer of morlu" /morlu-scenegraph "")
morlu_pkgconfig(morlu morlu "${PROJECT_DESCRIPTION}" "" morlu-scenegraph)
morlu_pkgconfig(morlu-io morlu_io "Model files in and out of morlu's scene-graph layer"
                /morlu-scenegraph morlu-scenegraph)
