#include "rawimage/records.h"

#include <algorithm>

#include "rawimage/format.h"
#include "support/char_string.h"

namespace MUtils {

MRRegionData::~MRRegionData() = default;

Matrix::Matrix(int kind) {
    if (kind != 0 && kind != 1) return;
    for (int row = 0; row < 3; ++row) {
        for (int column = 0; column < 3; ++column)
            axis[row][column] = row == column ? static_cast<float>(kind) : 0.0f;
    }
}

}  // namespace MUtils

MUtils::Transform RICameraInfo::getCameraTransform() const {
    MUtils::Transform t;
    for (int i = 0; i < 3; ++i) {
        t.matrix.axis[0][i] = transform[i];
        t.matrix.axis[1][i] = -transform[8 + i];
        t.matrix.axis[2][i] = transform[4 + i];
        t.offset[i] = transform[12 + i];
    }
    return t;
}

void RICameraInfo::setCameraTransform(const MUtils::Transform& t) {
    std::fill(std::begin(transform), std::end(transform), 0.0f);
    for (int i = 0; i < 3; ++i) {
        transform[i] = t.matrix.axis[0][i];
        transform[4 + i] = t.matrix.axis[2][i];
        transform[8 + i] = -t.matrix.axis[1][i];
        transform[12 + i] = t.offset[i];
    }
    transform[15] = 1.0f;
}

RISceneInfo::RISceneInfo(int sceneValue, const char* text) : value(sceneValue) {
    setName(text);
}

RISceneInfo::RISceneInfo(const RISceneInfo& other) : RISceneInfo(other.value, other.name) {}

RISceneInfo& RISceneInfo::operator=(const RISceneInfo& other) {
    if (this != &other) {
        setName(other.name);
        value = other.value;
    }
    return *this;
}

RISceneInfo::~RISceneInfo() {
    delete[] name;
}

void RISceneInfo::setName(const char* text) {
    MUtils::assignText(name, text);
}

int getChanSize(int tagId) {
    const MUtils::RIF_PIXEL_KIND* kind = MUtils::findPixelKind(static_cast<unsigned>(tagId));
    return kind != nullptr ? kind->valueSize : -1;
}
