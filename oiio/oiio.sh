# Lets programs on OpenImageIO open raw images, once a shell has read this file: . PREFIX/share/rawimage/oiio.sh
# Wants rimg in the path. Folders that are listed already stay.
rimg_oiio_dir=$(rimg config --oiio-plugin-dir) && {
    # Up to version 2.4 OpenImageIO reads the first variable, newer ones the second.
    OIIO_LIBRARY_PATH=${OIIO_LIBRARY_PATH:+$OIIO_LIBRARY_PATH:}$rimg_oiio_dir
    OPENIMAGEIO_PLUGIN_PATH=${OPENIMAGEIO_PLUGIN_PATH:+$OPENIMAGEIO_PLUGIN_PATH:}$rimg_oiio_dir
    export OIIO_LIBRARY_PATH OPENIMAGEIO_PLUGIN_PATH
}
unset rimg_oiio_dir
