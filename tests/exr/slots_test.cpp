#include <gtest/gtest.h>

#include <cstring>
#include <numeric>
#include <vector>

#include "exr/file_data.h"
#include "rawimage/read/callback.h"
#include "rawimage/read/mt_reader.h"

// Hosts call these classes through their virtual tables, so new operations must follow the existing ones. A
// pointer to a virtual member holds its place in the table, in the form that this ABI defines.
#if defined(__x86_64__)

namespace {

constexpr int kAfterDestructor = 2;  // a virtual destructor takes two places

template <class Member>
int slot(Member member) {
    std::ptrdiff_t words[2] = {};
    static_assert(sizeof member == sizeof words);
    std::memcpy(words, &member, sizeof words);
    return static_cast<int>((words[0] - 1) / static_cast<std::ptrdiff_t>(sizeof(void*)));
}

struct Interface {
    const char* name;
    int first;
    std::vector<int> slots;
};

TEST(Slots, AreInTheOrderThatHostsWereCompiledFor) {
    using Base = RIFileBase;
    using Callback = RIFileCallback;
    using Channel = MUtils::RegionChannelCallback;
    using Jobs = RIFileMT::RIFileJobManager;
    using Exr = ExrFileDataBase;
    using ByRegion = ErrorCode (Base::*)(MRRegionData*);
    using ByTable = ErrorCode (Base::*)(MUtils::Table<Channel*, 100>*);
    const Interface interfaces[] = {
        {"RIFileBase",
         kAfterDestructor,
         {slot(&Base::Create), slot(&Base::Open), slot(&Base::Close), slot(&Base::ParseFile),
          slot(&Base::WriteHeader), slot(&Base::WTResolution), slot(&Base::WTRegionsInfo),
          slot(&Base::WTRegion), slot(ByRegion{&Base::WTChannelInfo}), slot(ByTable{&Base::WTChannelInfo}),
          slot(&Base::WTCameraInfo), slot(&Base::WTRenderRegion), slot(&Base::WTExtraAttributes),
          slot(&Base::WTSceneInfo), slot(&Base::WTStampText)}},
        {"RIFileCallback",
         0,
         {slot(&Callback::parseTag), slot(&Callback::setResolution), slot(&Callback::setNumChannels),
          slot(&Callback::setChannel), slot(&Callback::setImageData), slot(&Callback::setCameraInfo),
          slot(&Callback::setRenderRegion), slot(&Callback::setPreview), slot(&Callback::setSceneInfo),
          slot(&Callback::getPreviewBuffer), slot(&Callback::setStampData), slot(&Callback::setNote),
          slot(&Callback::getNote), slot(&Callback::setOverlayTextData), slot(&Callback::setMirtSettings)}},
        {"RegionChannelCallback",
         0,
         {slot(&Channel::getType), slot(&Channel::getAlias), slot(&Channel::getName),
          slot(&Channel::getFlags)}},
        {"RIFileJobManager", 0, {slot(&Jobs::proc), slot(&Jobs::getThreadName), slot(&Jobs::jobProc)}},
        {"ExrFileDataBase",
         kAfterDestructor,
         {slot(&Exr::create), slot(&Exr::close), slot(&Exr::setCameraInfo), slot(&Exr::setChannels),
          slot(&Exr::convertToHalf), slot(&Exr::setBitsPerChannel), slot(&Exr::setCompressionType),
          slot(&Exr::setAutoDataWindow), slot(&Exr::setFileName), slot(&Exr::setExtraAttributes),
          slot(&Exr::writeRegion), slot(&Exr::setStampText)}},
    };
    for (const Interface& interface : interfaces) {
        std::vector<int> expected(interface.slots.size());
        std::iota(expected.begin(), expected.end(), interface.first);
        EXPECT_EQ(interface.slots, expected) << interface.name;
    }
}

}  // namespace

#endif
