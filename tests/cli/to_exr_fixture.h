#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "tests/testing/exr_control.h"
#include "tests/testing/raw_frame.h"
#include "tests/testing/run_program.h"

namespace testing_tools {

inline constexpr const char* kKinds[] = {"scanline", "multipart", "tiled"};

inline ProgramResult convert(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "convert");
    return runProgram(RIMG_PROGRAM, arguments);
}

// A conversion that works and has nothing to tell.
inline void expectConverted(const std::vector<std::string>& arguments) {
    const ProgramResult result = convert(arguments);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out + result.err, "");
}

using Planes = std::map<std::string, ExrPlane>;

// Every channel of the file is one of `expected`, and has its values bit for bit wherever that has any.
inline std::size_t expectSamePixels(Planes& expected, const std::string& made) {
    Imath::V2i frame;
    Planes planes = readPlanes(made, frame);
    for (auto& [name, plane] : planes) {
        ExrPlane& source = expected.at(name);
        const Imath::Box2i& window = source.window;
        const std::size_t rowBytes = 4 * static_cast<std::size_t>(window.max.x - window.min.x + 1);
        bool same = plane.has(window.min.x, window.min.y) && plane.has(window.max.x, window.max.y);
        for (int y = window.min.y; same && y <= window.max.y; ++y)
            same = std::memcmp(&plane.at(window.min.x, y), &source.at(window.min.x, y), rowBytes) == 0;
        EXPECT_TRUE(same) << name;
    }
    return planes.size();
}

inline Planes planesOf(const std::string& path) {
    Imath::V2i frame;
    return readPlanes(path, frame);
}

inline float floatAt(ExrPlane& plane, int x, int y) {
    float value;
    std::memcpy(&value, &plane.at(x, y), 4);
    return value;
}

}  // namespace testing_tools
