#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/testing/raw_frame.h"
#include "tests/testing/run_program.h"

// Command lines that are wrong: each is answered with one line that names the slip and what would be right.

namespace {

using namespace testing_tools;
using testing::HasSubstr;
using testing::Not;

class RimgUsage : public testing::Test {
  protected:
    RimgUsage() {
        RawFrame frame;
        frame.write(folder_ / "a.rimg");
        frame.write(folder_ / "b.rimg");
    }
    ProgramResult run(const std::string& command) {
        return runProgram("/bin/bash", {"-c", "cd '" + folder_ / "' && exec '" RIMG_PROGRAM "' " + command});
    }
    // Whatever is in the folder, with what is in it.
    std::map<std::string, std::string> content() const {
        std::map<std::string, std::string> files;
        for (const auto& entry : std::filesystem::directory_iterator(folder_ / ""))
            files[entry.path()] = readFile(entry.path());
        return files;
    }

    TempFolder folder_;
};

TEST_F(RimgUsage, NamesTheSlipAndWhatWouldBeRight) {
    const char* verbs =
        "convert, info, preview, note, settings, verify, missing, stats, hash, recover, merge, diff, "
        "pieces or config";
    const struct {
        const char* command;
        std::vector<const char*> says;
    } cases[] = {
        {"", {"rimg: name a verb: ", verbs, "(see rimg --help)"}},
        {"foo", {"rimg: no verb \"foo\". The verbs are ", verbs}},
        {"foo a.rimg", {"no verb \"foo\""}},
        {"verfy a.rimg", {"no verb \"verfy\", did you mean verify?", verbs}},
        {"--json", {"rimg: no option --json before a verb", verbs}},
        {"--json info a.rimg", {"--json comes before the verb, options follow it: rimg info --json"}},
        {"info", {"rimg: info: needs FILE: ", "(see rimg info --help)"}},
        {"info --jsn", {"info: no option --jsn, did you mean --json? (see"}},
        {"info -x a.rimg", {"info: no option -x (see"}},
        {"info --json=3 a.rimg", {"info: --json takes no value"}},
        {"info ''", {"info: FILE: an empty name is no file"}},
        {"info a.rimg verify b.rimg", {"info: FILE: \"verify\" is a second verb, give one at a time"}},
        {"note a.rimg verify", {"note: \"verify\" is a second verb"}},
        {"missing --buckets a.rimg b.rimg", {"missing: --buckets lists those of one FILE, not of 2"}},
        {"missing", {"missing: needs FILE: "}},
        {"verify", {"verify: needs FILE: "}},
        {"verify -j x a.rimg", {"verify: --threads: a whole number from 1 to 1024, not \"x\""}},
        {"verify -j 0 a.rimg", {"--threads: a whole number from 1 to 1024, not \"0\""}},
        {"verify --threads=4.5 a.rimg", {"not \"4.5\""}},
        {"verify -j 99999999999999 a.rimg", {"not \"99999999999999\""}},
        {"verify --frames 1-3 a.rimg", {"rimg: a.rimg: has neither # nor %04d for the number of --frames"}},
        {"verify --frames 1-3 a# a%4d", {"rimg: a%4d: has neither"}},
        {"info --frames '' a#", {"info: --frames: no frames"}},
        {"info --frames 1,,2 a#", {"info: --frames: frames are numbers and ranges such as ", "not \"\" ("}},
        {"info --frames 1, a#", {"not \"\" ("}},
        {"info --frames 1-2,x a#", {"not \"x\""}},
        {"info --frames 1- a#", {"not \"1-\""}},
        {"info --frames 1x2 a#", {"not \"1x2\""}},
        {"info --frames 1-5x0 a#", {"not \"1-5x0\""}},
        {"info --frames 1-5x-1 a#", {"not \"1-5x-1\""}},
        {"info --frames 2147483648 a#", {"not \"2147483648\""}},
        {"info --frames 1 --frames 2 a#", {"info: --frames is given 2 times"}},
        {"info --frames -2147483648-2147483647 a#", {"info: --frames: at most 1000000 frames, not"}},
        {"info --frames 1-600000 a# b#", {"rimg: more than 1000000 files, or 256 MiB of their names"}},
        {"info --frames 1-100000 %04095d", {"rimg: more than 1000000 files, or 256 MiB"}},
        {"info --frames 1", {"info: needs FILE: "}},
        {"info --files-from /dev/null", {"rimg: /dev/null: contains no file names"}},
        {"info --files-from ''", {"info: --files-from: an empty name is no file"}},
        {"info --files-from - < a.rimg", {"rimg: standard input: contains NUL bytes"}},
        {"info --files-from - -0 < <(printf '%05000d')", {"input: contains a name that is longer than"}},
        {"info --files-from - -0 < /dev/zero", {"rimg: more than 1000000 files, or 256 MiB of their names"}},
        {"info --files-from <(yes)", {"rimg: more than 1000000 files"}},
        {"info -0 a.rimg", {"info: ", "requires --files-from"}},
        {"verify a.rimg -j", {"verify: --threads needs a value, as in --threads=N"}},
        {"verify -j 1 -j 2 a.rimg", {"verify: --threads is given 2 times"}},
        {"note a.rimg --set x --set-from y", {"note: --set and --set-from exclude each other, give one"}},
        {"note a.rimg --set", {"note: --set needs a value, as in --set=TEXT"}},
        {"note a.rimg --set-from", {"note: --set-from needs a value, as in --set-from=PATH"}},
        {"preview a.rimg -o", {"preview: --output needs a value, as in --output=OUT"}},
        {"note a.rimg --set '' --set x", {"note: --set is given 2 times"}},
        {"note", {"note: needs FILE: "}},
        {"note a.rimg b.rimg", {"note: takes one FILE, \"b.rimg\" is one too many"}},
        {"settings", {"settings: needs FILE: "}},
        {"settings a.rimg -o ''", {"settings: --output: an empty name is no file"}},
        {"recover a.rimg", {"rimg: recover: name a new file with -o, or use --in-place"}},
        {"recover a.rimg -o new --in-place",
         {"recover: --output and --in-place exclude each other, give one"}},
        {"recover --in-place", {"recover: needs FILE: "}},
        {"recover -o new", {"recover: needs FILE: "}},
        {"recover a.rimg -o a.rimg", {"a.rimg: input and output are the same file"}},
        {"merge a.rimg", {"merge: needs -o,--output: "}},
        {"merge -o new", {"merge: needs FILE: "}},
        {"merge a.rimg b.rimg -o new --overlap both", {"merge: --overlap: one of first, last, not \"both\""}},
        {"config", {"config: name one of --version, --prefix and --oiio-plugin-dir"}},
        {"config --prefix --version", {"--version and --prefix exclude each other"}},
        {"config a.rimg", {"config: takes options only, \"a.rimg\" is one too many"}},
        {"pieces --count 2", {"pieces: needs --size: "}},
        {"pieces --size 9x9 --count 0", {"pieces: --count: a whole number from 1 to 100000, not \"0\""}},
        {"convert", {"convert: needs IN: "}},
        {"convert a.rimg", {"convert: needs OUT: "}},
        {"convert a.rimg new new2", {"convert: takes one IN and one OUT, \"new2\" is one too many"}},
        {"convert a.rimg new.exr --kind foo", {"convert: --kind: ", "foo", "scanline"}},
        {"convert a.rimg ''", {"convert: OUT: an empty name is no file"}},
        {"preview a.rimg", {"preview: needs -o,--output: "}},
        {"preview a.rimg -o new.png --size 3", {"preview: --size: ", "WIDTHxHEIGHT", "3"}},
        {"preview a.rimg -o new.png --exposure abc", {"preview: --exposure: a number from -100 to 100, not"}},
        {"preview a.rimg -o new.png --exposure nan", {"preview: --exposure: ", "not \"nan\""}},
        {"preview a.rimg -o new.png --exposure=-1e3", {"preview: --exposure: ", "not \"-1e3\""}},
        {"preview a.rimg -o new.png -o new2.png", {"preview: --output is given 2 times"}},
    };
    const auto before = content();
    for (const auto& c : cases) {
        const ProgramResult result = run(c.command);
        EXPECT_EQ(result.status, 2) << c.command;
        EXPECT_EQ(result.out, "") << c.command;
        EXPECT_EQ(result.errorLines(), 1) << c.command;
        for (const char* part : c.says)
            EXPECT_THAT(result.err, HasSubstr(part)) << c.command;
        EXPECT_TRUE(content() == before) << c.command;
    }
}

}  // namespace
