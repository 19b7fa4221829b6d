# Lets programs on OpenImageIO open raw images.
if [ -r /usr/share/rawimage/oiio.sh ]; then
    . /usr/share/rawimage/oiio.sh
fi
