#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <ostream>
#include <random>
#include <set>
#include <string>

#include "tests/testing/exr_sample.h"
#include "tests/testing/raw_frame.h"
#include "tests/testing/run_program.h"

namespace testing_tools {

// A way to write an output. In `command` @ stands for the inputs' folder, and OUT for the output.
struct OutputVerb {
    const char* name;
    const char* command;
    const char* lastInput;
    bool stream;        // takes pipes and "-"
    const char* large;  // the same with so much work that a signal comes in time

    friend std::ostream& operator<<(std::ostream& out, const OutputVerb& verb) { return out << verb.name; }
};

inline const OutputVerb kOutputVerbs[] = {
    {"ConvertToRaw", "convert @exr OUT", "exr", false, "convert @big.exr OUT"},
    {"ConvertToScanlines", "convert @raw OUT", "raw", false, "convert @big OUT"},
    {"ConvertToTiles", "convert @raw OUT --kind tiled", "raw", false, "convert @big OUT --kind tiled"},
};

inline std::string nameOf(const testing::TestParamInfo<OutputVerb>& info) {
    return info.param.name;
}

// The inputs of every verb, made once and never changed.
class OutputInputs {
  public:
    OutputInputs() {
        RawFrame frame;
        frame.metadata = [](RIFile& file) {
            std::string settings(3000, 's');
            expectOk(file.WTMirtSettings(settings.data(), static_cast<int>(settings.size())));
        };
        frame.write(folder_ / "raw");
        frame.boxes = {{0, 0, 20, 24}};
        frame.write(folder_ / "left");
        frame.boxes = {{20, 0, 20, 24}};
        frame.write(folder_ / "right");
        ExrSample{{{"", "R:f G:f B:f", {{0, 0}, {39, 23}}}}, {{0, 0}, {39, 23}}}.write(folder_ / "exr");

        ExrSample exr{{{"", "R:f G:f B:f", {{0, 0}, {1599, 1199}}}}, {{0, 0}, {1599, 1199}}};
        exr.compression = Imf::NO_COMPRESSION;
        exr.write(folder_ / "big.exr");
        frame.width = frame.height = 1600;
        frame.values = [this](int, int, int) { return static_cast<float>(random_()); };
        frame.boxes = {{0, 0, 1600, 1600}};
        frame.channels = {{2, 126, "color"}};
        frame.write(folder_ / "big");
    }

    std::string operator/(const std::string& name) const { return folder_ / name; }

  private:
    TempFolder folder_;
    std::minstd_rand random_;
};

class Output : public testing::TestWithParam<OutputVerb> {
  protected:
    static const OutputInputs& inputs() {
        static const OutputInputs made;
        return made;
    }

    // `before` is what the shell does first. OUT is in the test's own folder when it is no path.
    ProgramResult runCommand(std::string command, const std::string& out, const std::string& before,
                             const std::function<void(pid_t)>& meanwhile = {}) const {
        const std::string path = out.find('/') == std::string::npos && out != "-" ? folder_ / out : out;
        command.replace(command.find("OUT"), 3, "'" + path + "'");
        for (std::size_t at = 0; (at = command.find('@', at)) != std::string::npos;)
            command.replace(at, 1, inputs() / "");
        return runProgram("/bin/bash", {"-c", before + "exec '" RIMG_PROGRAM "' " + command}, meanwhile);
    }
    ProgramResult run(const std::string& out, const std::string& before = "") const {
        return runCommand(GetParam().command, out, before);
    }

    // All names in the folder.
    std::set<std::string> files() const {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(folder_ / ""))
            names.insert(entry.path().filename());
        return names;
    }
    static mode_t modeOf(const std::string& path) {
        struct stat status {};
        ::stat(path.c_str(), &status);
        return status.st_mode & 07777;
    }

    TempFolder folder_;
};

}  // namespace testing_tools
