#include "rawimage/read/callback.h"

int RIFileCallback::parseTag(RIF_TAG&) {
    return 1;
}
bool RIFileCallback::setCameraInfo(const RICameraInfo&) {
    return true;
}
bool RIFileCallback::setRenderRegion(const RIRegionInfo&) {
    return true;
}
bool RIFileCallback::setPreview(MBVTable&, int, int, int) {
    return true;
}
bool RIFileCallback::setSceneInfo(RISceneInfo) {
    return true;
}
MUtils::RGB24* RIFileCallback::getPreviewBuffer() {
    return nullptr;
}
bool RIFileCallback::setStampData(PBufStream*) {
    return true;
}
bool RIFileCallback::setNote(const char*) {
    return true;
}
const char* RIFileCallback::getNote() {
    return nullptr;
}
bool RIFileCallback::setOverlayTextData(PBufStream*) {
    return true;
}
bool RIFileCallback::setMirtSettings(PBufStream*) {
    return true;
}
