#include <OpenImageIO/imageio.h>

#include "oiio/reader.h"
#include "oiio/writer.h"

// What OpenImageIO looks for in a module by the name of its format. Objects are handed over.

OIIO_PLUGIN_EXPORTS_BEGIN

OIIO_EXPORT int rimg_imageio_version = OIIO_PLUGIN_VERSION;
OIIO_EXPORT const char* rimg_input_extensions[] = {"rimg", nullptr};
OIIO_EXPORT const char* rimg_output_extensions[] = {"rimg", nullptr};

OIIO_EXPORT const char* rimg_imageio_library_version() {
    return "rawimage";
}

OIIO_EXPORT OIIO::ImageInput* rimg_input_imageio_create() {
    return new rimg_imageio::Reader;
}

OIIO_EXPORT OIIO::ImageOutput* rimg_output_imageio_create() {
    return new rimg_imageio::Writer;
}

OIIO_PLUGIN_EXPORTS_END
