#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <ostream>
#include <random>
#include <set>
#include <string>
#include <vector>

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
    {"ConvertToScanlines", "convert @plain OUT", "plain", false, "convert @big OUT"},
    {"ConvertToTiles", "convert @plain OUT --kind tiled", "plain", false, "convert @big OUT --kind tiled"},
    {"Recover", "recover @raw -o OUT", "raw", false, "recover @big -o OUT"},
    {"Merge", "merge @left @right -o OUT", "right", false, "merge @big.left @big.right -o OUT"},
    {"Preview", "preview @raw -o OUT", "raw", true, "preview @big --size 3000x3000 -o OUT"},
    {"Settings", "settings @raw -o OUT", "raw", true, "settings @vast -o OUT"},
};

inline std::string nameOf(const testing::TestParamInfo<OutputVerb>& info) {
    return info.param.name;
}

// The inputs, each made when it is first named.
class OutputInputs {
  public:
    std::string operator/(const std::string& name) const {
        const std::string path = folder_ / name;
        if (!std::filesystem::exists(path)) make(name, path);
        return path;
    }

  private:
    static void make(const std::string& name, const std::string& path) {
        if (name == "exr" || name == "big.exr") {
            const Imath::Box2i box{{0, 0}, name == "exr" ? Imath::V2i(39, 23) : Imath::V2i(1599, 1199)};
            ExrSample exr{{{"", "R:f G:f B:f", box}}, box};
            exr.compression = Imf::NO_COMPRESSION;
            return exr.write(path);
        }
        RawFrame frame;
        std::vector<char> settings(name == "vast" ? 128 << 20 : 3000, 's');
        // OpenEXR files have no place for settings, which is reported.
        if (name != "plain") {
            frame.metadata = [&](RIFile& file) {
                expectOk(file.WTMirtSettings(settings.data(), static_cast<int>(settings.size())));
            };
        }
        if (name == "left") frame.boxes = {{0, 0, 20, 24}};
        if (name == "right") frame.boxes = {{20, 0, 20, 24}};
        if (name.substr(0, 3) == "big") {
            frame.channels = {{2, 126, "color"}};
            frame.tile = 2;
            frame.width = frame.height = 1000;
            frame.boxes = {{0, 0, 1000, 1000}};
        }
        if (name == "big.left") frame.boxes = {{0, 0, 500, 1000}};
        if (name == "big.right") frame.boxes = {{500, 0, 500, 1000}};
        // Noise, which no compression makes short.
        std::minstd_rand random;
        frame.values = [&](int, int, int) { return static_cast<float>(random() % 1000) / 1000; };
        frame.write(path);
    }

    TempFolder folder_;
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
        for (std::size_t at = 0; (at = command.find('@')) != std::string::npos;) {
            const std::size_t end = command.find(' ', at);
            command.replace(at, end - at, inputs() / command.substr(at + 1, end - at - 1));
        }
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
