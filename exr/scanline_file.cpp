#include "exr/scanline_file.h"

#include <ImfChannelList.h>
#include <ImfHeader.h>
#include <ImfThreading.h>

#include <cstring>
#include <string>

#include "exr/output_stream.h"

using namespace MUtils;

ExrFileData::ExrFileData(bool multiPartFile) : multiPart(multiPartFile) {}

ExrFileData::~ExrFileData() {
    (void)ExrFileData::close();
}

ErrorCode ExrFileData::create() {
    return {};
}

ErrorCode ExrFileData::close() {
    ErrorCode result = closeFile([this] { file.reset(); });
    header.reset();
    headerCount = 0;
    stagingBuffers.freeData();
    channels.freeData();
    fileCreated = 0;
    return result;
}

ErrorCode ExrFileData::setCameraInfo(const RICameraInfo& camera) {
    cameraInfo = camera;
    return {};
}

void ExrFileData::setAutoDataWindow(int on) {
    autoDataWindow = on;
}

ErrorCode ExrFileData::setExtraAttributes(const char* text) {
    if (text != nullptr && *text != 0) extraAttributes = text;
    return {};
}

ErrorCode ExrFileData::setChannels(MUtils::Table<MUtils::RegionChannelCallback*, 100>* table) {
    if (ErrorCode error = checkChannels(table); !error.empty()) return error;
    channels.freeData();
    severalDepthChannels = hasSeveralDepthChannels(*table) ? 1 : 0;
    // Entries that are left out keep their place: the index is the one in the renderer's table.
    for (int i = 0; i < table->Count(); ++i) {
        MUtils::RegionChannelCallback* channel = (*table)[i];
        if (!isWrittenToExr(channel)) continue;
        ExrChanInfo info;
        info.index = i;
        info.type = channel->getType();
        info.alias = channel->getAlias();
        info.name = channel->getName();
        channels.Add(info);
    }
    stagingBuffers.freeData();
    stagingBuffers.setCount(channels.Count());
    return {};
}

ErrorCode ExrFileData::createHeaders() {
    headerCount = 0;
    mainPart = -1;
    const int slots = multiPart ? channels.Count() : 1;
    header.reset(slots > 0 ? new Imf::Header[static_cast<std::size_t>(slots)] : nullptr);
    stagingBuffers.freeData();
    stagingBuffers.setCount(channels.Count());
    for (ExrChanInfo& info : channels)
        placeChannel(info);
    for (int part = 0; part < headerCount; ++part)
        editHeader(part);

    // Both reach the first part only, and their errors are dropped, deliberately.
    (void)ExrFileDataBase::setCameraInfo(cameraInfo);
    if (!extraAttributes.empty()) {
        (void)ExrFileDataBase::setExtraAttributes(extraAttributes.c_str());
        // The text may name the data window, but the pixels that are there are those of this one.
        if (headerCount > 0) header[0].dataWindow() = placed(windowBox());
    }
    return {};
}

void ExrFileData::placeChannel(ExrChanInfo& info) {
    info.exrNames = {};
    info.part = -1;
    const ExrChannelRule* rule = findExrChannelRule(info.type, info.alias, severalDepthChannels != 0);
    if (rule == nullptr) return;
    const char* base = info.name.c_str();
    if (rule->naming == ExrNaming::kMain) {
        const char* unnamed = "";
        if (mainPart < 0) mainPart = selectPart(unnamed, false);
        info.part = mainPart;
    } else {
        info.part = selectPart(base, rule->naming == ExrNaming::kWhole);
    }
    info.exrNames = exrChannelNames(*rule, base, EmptyBase::kLabelAlone);
    insertExrChannels(header[static_cast<std::size_t>(info.part)].channels(), *rule, info.exrNames,
                      pixelType);
}

int ExrFileData::selectPart(const char*& name, bool useOther) {
    std::string partName;
    if (multiPart) {
        const char* dot = std::strchr(name, '.');
        if (dot != nullptr && dot[1] != 0) {
            partName.assign(name, dot);
            name = dot + 1;
        } else if (useOther) {
            partName = "other";
        } else {
            partName = name;
            name += partName.size();
        }
    }
    for (int part = 0; part < headerCount; ++part) {
        if (header[static_cast<std::size_t>(part)].name() == partName) return part;
    }
    return addPart(partName.c_str());
}

// There is a slot for each channel, and a channel adds at most one part.
int ExrFileData::addPart(const char* name) {
    Imf::Header& added = header[static_cast<std::size_t>(headerCount)];
    added = makeHeader(windowBox());
    added.setType("scanlineimage");
    added.setName(name);
    return headerCount++;
}

Imath::Box2i ExrFileData::windowBox() const {
    const auto place = [](std::int64_t value) { return static_cast<int>(value); };
    return {{place(dataWindow.x0), place(dataWindow.y0)},
            {lastPixel(place(dataWindow.x1), 0), lastPixel(place(dataWindow.y1), 0)}};
}

ErrorCode ExrFileData::createFile() {
    if (header == nullptr) return ErrorCode("createFile", -1, "Header not created yet");
    return openFile("createFile", [this](ExrOutputStream& stream) {
        file = std::make_unique<Imf::MultiPartOutputFile>(stream, header.get(), headerCount, false,
                                                          threadsToAskFor());
    });
}
