include(CMakePackageConfigHelpers)

# The major version is part of the path, so that two of them can be installed side by side.
set(RAWIMAGE_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}/rawimage-${PROJECT_VERSION_MAJOR}")
set(RAWIMAGE_CMAKEDIR "${CMAKE_INSTALL_LIBDIR}/cmake/rawimage")
set(RAWIMAGE_PCDIR "${CMAKE_INSTALL_LIBDIR}/pkgconfig")

# Each file belongs to one of the packages that Packages.cmake makes: runtime, dev, tools, python, oiio.
install(TARGETS rawimage EXPORT rawimageTargets
    ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT dev
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT runtime NAMELINK_COMPONENT dev
    RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT runtime
    FILE_SET HEADERS DESTINATION "${RAWIMAGE_INCLUDEDIR}" COMPONENT dev
    INCLUDES DESTINATION "${RAWIMAGE_INCLUDEDIR}")
install(EXPORT rawimageTargets NAMESPACE rawimage:: DESTINATION "${RAWIMAGE_CMAKEDIR}" COMPONENT dev)

if(RAWIMAGE_BUILD_CLI)
    file(RELATIVE_PATH bin_to_lib "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_LIBDIR}")
    set_target_properties(rimg PROPERTIES INSTALL_RPATH "$ORIGIN/${bin_to_lib}")
    install(TARGETS rimg RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT tools)

    # rimg-farm finds its other file beside itself.
    set(RAWIMAGE_FARMDIR "${CMAKE_INSTALL_DATADIR}/rawimage/farm")
    install(PROGRAMS farm/rimg-farm DESTINATION "${RAWIMAGE_FARMDIR}" COMPONENT tools)
    install(FILES farm/farm_scripts.py DESTINATION "${RAWIMAGE_FARMDIR}" COMPONENT tools)
    file(RELATIVE_PATH bin_to_farm "${CMAKE_INSTALL_FULL_BINDIR}"
        "${CMAKE_INSTALL_FULL_DATADIR}/rawimage/farm/rimg-farm")
    file(CREATE_LINK "${bin_to_farm}" "${PROJECT_BINARY_DIR}/rimg-farm" SYMBOLIC)
    install(FILES "${PROJECT_BINARY_DIR}/rimg-farm" DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT tools)
endif()

# Whoever links the static archive links the compression libraries as well; a shared library has its own.
set(RAWIMAGE_CONFIG_CODECS "")
if(RAWIMAGE_HAS_LIBDEFLATE)
    list(APPEND RAWIMAGE_CONFIG_CODECS libdeflate)
endif()
if(RAWIMAGE_HAS_ISAL)
    list(APPEND RAWIMAGE_CONFIG_CODECS libisal)
endif()
set(codec_packages zlib ${RAWIMAGE_CONFIG_CODECS})
list(JOIN codec_packages ", " codec_packages)
if(library_type STREQUAL "STATIC_LIBRARY")
    set(RAWIMAGE_CONFIG_STATIC ON)
    set(RAWIMAGE_PC_REQUIRES "OpenEXR >= 3.1, ${codec_packages}")
    set(RAWIMAGE_PC_REQUIRES_PRIVATE "")
else()
    set(RAWIMAGE_CONFIG_STATIC OFF)
    set(RAWIMAGE_PC_REQUIRES "OpenEXR >= 3.1")
    set(RAWIMAGE_PC_REQUIRES_PRIVATE "${codec_packages}")
endif()

configure_package_config_file(cmake/rawimageConfig.cmake.in "${PROJECT_BINARY_DIR}/rawimageConfig.cmake"
    INSTALL_DESTINATION "${RAWIMAGE_CMAKEDIR}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/rawimageConfigVersion.cmake"
    COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/rawimageConfig.cmake" "${PROJECT_BINARY_DIR}/rawimageConfigVersion.cmake"
    cmake/RawimageCodecs.cmake cmake/RawimageImath.cmake
    DESTINATION "${RAWIMAGE_CMAKEDIR}" COMPONENT dev)

# The .pc file finds its prefix from where it lies, so an installed tree can be moved.
file(RELATIVE_PATH RAWIMAGE_PC_TO_PREFIX "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
string(REGEX REPLACE "/$" "" RAWIMAGE_PC_TO_PREFIX "${RAWIMAGE_PC_TO_PREFIX}")
configure_file(cmake/rawimage.pc.in "${PROJECT_BINARY_DIR}/rawimage.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/rawimage.pc" DESTINATION "${RAWIMAGE_PCDIR}" COMPONENT dev)

if(PROJECT_IS_TOP_LEVEL)
    include(cmake/Packages.cmake)
endif()
