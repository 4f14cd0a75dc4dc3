# Installation: the two executables, the library, its public headers, a CMake package
# (find_package(corvi CONFIG) gives corvi::corvi), a pkg-config file and the man pages.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# What a caller includes: the umbrella corvi.h and the headers it names. The headers keep their
# folders under include/corvi, where they find each other.
set(CORVI_PUBLIC_HEADERS
    base/byte_coverage.h base/byte_order.h base/limits.h base/property.h base/raw_layer.h
    base/raw_layer_exception.h base/sampling.h decode/decode_state.h exif/tag_names.h
    exif/tiff_entry.h jpeg/jpeg_reader.h jpeg/markers.h jpeg/segment_fields.h merge/merge.h
    platform/format.h)
foreach(header ${CORVI_PUBLIC_HEADERS})
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/corvi/${folder})
endforeach()
install(FILES corvi.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/corvi)

install(TARGETS corvi corvi-merge corvi-map corvi-check RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS corvi_lib EXPORT corviTargets
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(EXPORT corviTargets NAMESPACE corvi:: FILE corviTargets.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/corvi)
configure_package_config_file(cmake/corviConfig.cmake.in
                              ${CMAKE_CURRENT_BINARY_DIR}/corviConfig.cmake
                              INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/corvi)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/corviConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/corviConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/corviConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/corvi)

configure_file(cmake/corvi.pc.in ${CMAKE_CURRENT_BINARY_DIR}/corvi.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/corvi.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(FILES man/corvi.1 man/corvi-merge.1 man/corvi-map.1 man/corvi-check.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
