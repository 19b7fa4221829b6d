# Debian packages, made by cpack in a build directory that is configured as `make package` does it: one for each
# component of the install rules.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME rawimage)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_PACKAGE_CONTACT "rawimage developers <rawimage@localhost.invalid>")
set(CPACK_OUTPUT_FILE_PREFIX "${PROJECT_BINARY_DIR}/packages")
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY "=")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}")
set(CPACK_COMPONENTS_ALL "")

set(package_version "${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}")
set(runtime_package "librawimage${PROJECT_VERSION_MAJOR}")
set(debian "${PROJECT_BINARY_DIR}/debian")
# SOURCE_DATE_EPOCH in the environment sets the time.
string(TIMESTAMP package_date "%a, %d %b %Y %H:%M:%S +0000" UTC)
string(TIMESTAMP package_year "%Y" UTC)
configure_file(packaging/debian/copyright.in "${debian}/copyright" @ONLY)

# rawimage_package(COMPONENT NAME SECTION SUMMARY TEXT [DEPENDS ...] [SUGGESTS ...] [PYTHON FOLDER])
# DEPENDS comes on top of the libraries that programs are linked with. PYTHON names the folder whose modules are
# compiled when the package is installed.
macro(rawimage_package component name section summary text)
    cmake_parse_arguments(arg "" "PYTHON" "DEPENDS;SUGGESTS" ${ARGN})
    list(APPEND CPACK_COMPONENTS_ALL ${component})
    string(TOUPPER "${component}" upper)
    list(JOIN arg_DEPENDS ", " CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS)
    list(JOIN arg_SUGGESTS ", " CPACK_DEBIAN_${upper}_PACKAGE_SUGGESTS)
    set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name})
    set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
    set(CPACK_DEBIAN_${upper}_PACKAGE_SHLIBDEPS ON)
    set(CPACK_DEBIAN_${upper}_DESCRIPTION "${summary}\n${text}")

    set(package_name ${name})
    configure_file(packaging/debian/changelog.in "${debian}/${component}/changelog" @ONLY)
    execute_process(COMMAND gzip -9nf "${debian}/${component}/changelog" COMMAND_ERROR_IS_FATAL ANY)
    install(FILES "${debian}/${component}/changelog.gz" RENAME changelog.Debian.gz
        DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/${name}" COMPONENT ${component} EXCLUDE_FROM_ALL)
    install(FILES "${debian}/copyright"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/${name}" COMPONENT ${component} EXCLUDE_FROM_ALL)
    configure_file(packaging/debian/lintian-overrides.in "${debian}/${component}/lintian-overrides" @ONLY)
    install(FILES "${debian}/${component}/lintian-overrides" RENAME ${name}
        DESTINATION "${CMAKE_INSTALL_DATADIR}/lintian/overrides" COMPONENT ${component} EXCLUDE_FROM_ALL)
    if(arg_PYTHON)
        set(package_folder "${arg_PYTHON}")
        foreach(script IN ITEMS postinst prerm)
            configure_file(packaging/debian/${script}.in "${debian}/${component}/${script}" @ONLY)
            list(APPEND CPACK_DEBIAN_${upper}_PACKAGE_CONTROL_EXTRA "${debian}/${component}/${script}")
        endforeach()
    endif()
endmacro()

rawimage_package(runtime ${runtime_package} libs "render-output files, raw images and OpenEXR (library)"
    "The files that a renderer writes bucket by bucket, so that a render that dies
leaves all that it had finished. This package has the shared library."
    DEPENDS "")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA "${PROJECT_SOURCE_DIR}/packaging/debian/triggers")
# What the headers and the pkg-config file name, and CMake looks for.
set(dev_packages "libopenexr-dev (>= 3.1)" libimath-dev zlib1g-dev)
if(RAWIMAGE_HAS_LIBDEFLATE)
    list(APPEND dev_packages libdeflate-dev)
endif()
if(RAWIMAGE_HAS_ISAL)
    list(APPEND dev_packages libisal-dev)
endif()
rawimage_package(dev librawimage-dev libdevel "render-output files, raw images and OpenEXR (headers)"
    "The files that a renderer writes bucket by bucket, so that a render that dies
leaves all that it had finished. This package has what programs that write or
read them are built with: headers, CMake configuration and pkg-config file."
    DEPENDS "${runtime_package} (= ${package_version})" ${dev_packages})
if(RAWIMAGE_BUILD_CLI)
    rawimage_package(tools rawimage-tools graphics "work on raw images of a renderer"
        "rimg shows, verifies, repairs, merges, compares and converts the raw images
that a renderer writes bucket by bucket. rimg-farm renders frames in pieces on
many machines. With manual pages, completion for bash, zsh and fish, the MIME
type and a thumbnailer."
        DEPENDS "${runtime_package} (= ${package_version})" "python3:any"
        SUGGESTS slurm-client parallel
        PYTHON "${CMAKE_INSTALL_PREFIX}/${RAWIMAGE_FARMDIR}")
endif()
if(RAWIMAGE_BUILD_PYTHON)
    get_directory_property(python_folder DIRECTORY python DEFINITION RAWIMAGE_PYTHON_INSTALL_DIR)
    cmake_path(ABSOLUTE_PATH python_folder BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}")
    rawimage_package(python python3-rawimage python "raw images of a renderer as numpy arrays"
        "Reads, writes and checks the raw images that a renderer writes bucket by
bucket, from Python."
        DEPENDS "${runtime_package} (= ${package_version})" "python3 (<< 3.12), python3 (>= 3.11)" python3-numpy
        python3-pil
        PYTHON "${python_folder}/rawimage")
endif()
if(RAWIMAGE_BUILD_OIIO)
    rawimage_package(oiio openimageio-plugin-rawimage graphics "raw images of a renderer in image tools"
        "A plug-in of OpenImageIO, by which its tools and all that builds on it read and
write the raw images that a renderer writes bucket by bucket."
        DEPENDS "${runtime_package} (= ${package_version})"
        SUGGESTS openimageio-tools rawimage-tools)
    # Debian's OpenImageIO looks for plug-ins only where the environment says so.
    install(FILES packaging/debian/oiio_profile.sh RENAME rawimage-oiio.sh
        DESTINATION /etc/profile.d COMPONENT oiio EXCLUDE_FROM_ALL)
    file(WRITE "${debian}/oiio/conffiles" "/etc/profile.d/rawimage-oiio.sh\n")
    set(CPACK_DEBIAN_OIIO_PACKAGE_CONTROL_EXTRA "${debian}/oiio/conffiles")
endif()
include(CPack)
