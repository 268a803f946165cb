# Installing mediawire for applications: the CMake package (find_package(mediawire) with
# mediawire::<folder> targets and mediawire::mediawire for all of them), mediawire.pc for
# pkg-config, and a Debian package through CPack.
include(CMakePackageConfigHelpers)

get_property(mw_libraries GLOBAL PROPERTY MW_LIBRARIES)
get_property(mw_pkg_finds GLOBAL PROPERTY MW_PKG_FINDS)
get_property(mw_pkg_modules GLOBAL PROPERTY MW_PKG_MODULES)

# Everything at once.
add_library(mw_all INTERFACE)
add_library(mediawire::mediawire ALIAS mw_all)
set_target_properties(mw_all PROPERTIES EXPORT_NAME mediawire)
target_link_libraries(mw_all INTERFACE ${mw_libraries})
install(TARGETS mw_all EXPORT mediawireTargets)

install(EXPORT mediawireTargets NAMESPACE mediawire:: DESTINATION ${MW_INSTALL_CMAKEDIR})
string(REPLACE ";" " " MW_PKG_FINDS "${mw_pkg_finds}")
configure_package_config_file(cmake/mediawireConfig.cmake.in
                              ${CMAKE_CURRENT_BINARY_DIR}/mediawireConfig.cmake
                              INSTALL_DESTINATION ${MW_INSTALL_CMAKEDIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/mediawireConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/mediawireConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/mediawireConfigVersion.cmake
        DESTINATION ${MW_INSTALL_CMAKEDIR})

# pkg-config: the libraries with each one before those it needs.
set(MW_PC_LIBS "")
foreach(lib IN LISTS mw_libraries)
    get_target_property(out ${lib} OUTPUT_NAME)
    if(NOT out)
        set(out ${lib})
    endif()
    set(MW_PC_LIBS "-l${out} ${MW_PC_LIBS}")
endforeach()
list(REMOVE_DUPLICATES mw_pkg_modules)
string(REPLACE ";" ", " mw_pc_requires "${mw_pkg_modules}")
# A shared mediawire carries its system libraries itself; users of the static libraries link
# them too, so there they are public requirements as well (a --static link would pull the
# static closure of FFmpeg, which Debian does not ship).
set(MW_PC_REQUIRES_LINES "Requires.private: ${mw_pc_requires}\n")
if(NOT BUILD_SHARED_LIBS)
    set(MW_PC_REQUIRES_LINES "Requires: ${mw_pc_requires}\n${MW_PC_REQUIRES_LINES}")
endif()
# Relocatable: the prefix is found from where the file lies.
file(RELATIVE_PATH MW_PC_TO_PREFIX /root/${CMAKE_INSTALL_LIBDIR}/pkgconfig /root)
string(REGEX REPLACE "/$" "" MW_PC_TO_PREFIX "${MW_PC_TO_PREFIX}")
configure_file(cmake/mediawire.pc.in ${CMAKE_CURRENT_BINARY_DIR}/mediawire.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/mediawire.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The Debian package: headers, libraries, the CMake and pkg-config files and the tool. With
# static libraries an application links the system libraries itself, so their -dev packages
# are dependencies; the tool's own shared-library dependencies are computed.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME libmediawire-dev)
set(CPACK_PACKAGE_VENDOR "mediawire developers")
set(CPACK_PACKAGE_CONTACT "mediawire developers <mediawire@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS
    "libasound2-dev, libavcodec-dev, libavformat-dev, libavutil-dev, libswresample-dev, libavfilter-dev, libgsf-1-dev, pkg-config")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
include(CPack)
