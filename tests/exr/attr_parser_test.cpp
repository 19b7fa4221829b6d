#include "exr/attr_parser.h"

#include <Iex.h>
#include <ImfBoxAttribute.h>
#include <ImfFloatAttribute.h>
#include <ImfHeader.h>
#include <ImfIntAttribute.h>
#include <ImfMatrixAttribute.h>
#include <ImfStringAttribute.h>
#include <ImfVecAttribute.h>
#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <sstream>
#include <string>

#include "tests/testing/run_program.h"

using namespace MUtils;

namespace {

template <class T>
const T* valueOf(const Imf::Attribute& attribute) {
    const auto* typed = dynamic_cast<const Imf::TypedAttribute<T>*>(&attribute);
    return typed != nullptr ? &typed->value() : nullptr;
}

template <class Matrix>
void printMatrix(std::ostream& out, const Matrix& matrix, int rows) {
    for (int i = 0; i < rows * rows; ++i)
        out << ' ' << matrix[i / rows][i % rows];
}

// "int 12", "v2f 1 2", "string <text>" as the header holds it; "none" without such an attribute.
std::string shown(const Imf::Header& header, const char* name) {
    const auto found = header.find(name);
    if (found == header.end()) return "none";
    const Imf::Attribute& a = found.attribute();
    std::ostringstream out;
    out.imbue(std::locale::classic());
    out.precision(9);
    out << a.typeName();
    if (const auto* v = valueOf<int>(a)) out << ' ' << *v;
    if (const auto* v = valueOf<float>(a)) out << ' ' << *v;
    if (const auto* v = valueOf<std::string>(a)) out << " <" << *v << '>';
    if (const auto* v = valueOf<Imath::V2i>(a)) out << ' ' << v->x << ' ' << v->y;
    if (const auto* v = valueOf<Imath::V2f>(a)) out << ' ' << v->x << ' ' << v->y;
    if (const auto* v = valueOf<Imath::V3i>(a)) out << ' ' << v->x << ' ' << v->y << ' ' << v->z;
    if (const auto* v = valueOf<Imath::V3f>(a)) out << ' ' << v->x << ' ' << v->y << ' ' << v->z;
    if (const auto* v = valueOf<Imath::Box2i>(a)) out << ' ' << v->min << ' ' << v->max;
    if (const auto* v = valueOf<Imath::Box2f>(a)) out << ' ' << v->min << ' ' << v->max;
    if (const auto* v = valueOf<Imath::M33f>(a)) printMatrix(out, *v, 3);
    if (const auto* v = valueOf<Imath::M44f>(a)) printMatrix(out, *v, 4);
    if (const auto* v = valueOf<Imath::M33d>(a)) printMatrix(out, *v, 3);
    if (const auto* v = valueOf<Imath::M44d>(a)) printMatrix(out, *v, 4);
    return out.str();
}

ErrorCode parse(Imf::Header& header, std::string text) {
    return WriteEXRExtraAttributes(header, text.data());
}

struct Row {
    const char* value;
    const char* shown;
};

// Each value must get the type of its spelling.
template <std::size_t kCount>
void expectShown(const Row (&rows)[kCount]) {
    for (const Row& row : rows) {
        Imf::Header header;
        const ErrorCode error = parse(header, std::string(" \t\r\na \n= ") + row.value + " ");
        EXPECT_TRUE(error.empty()) << error.describe();
        EXPECT_EQ(shown(header, "a"), row.shown) << row.value;
    }
}

TEST(AttributeValue, Numbers) {
    expectShown({{"12", "int 12"},
                 {"-7", "int -7"},
                 {"+0012", "int 12"},
                 {"-", "int 0"},
                 {"3000000000", "int -1294967296"},
                 {"99999999999999999999", "int -1"},
                 {"-99999999999999999999", "int 0"},
                 {"2.5", "float 2.5"},
                 {"-1.5e-2", "float -0.0149999997"},
                 {"1-2", "float 1"},
                 {"1.2.3", "float 1.20000005"},
                 {"--", "float 0"},
                 {"+-1", "float 0"},
                 {"-e", "float 0"},
                 {"1.00000005960464477540", "float 1"},  // rounds to double first
                 {"1e39", "float inf"},
                 {"-1e999", "float -inf"},
                 {"3.40282350e38", "float 3.40282347e+38"},
                 {"3.4028235677973366e38", "float inf"},
                 {"1e-999", "float 0"},
                 {".5", "string <.5>"},
                 {"1E5", "string <1E5>"},
                 {"0x10", "string <0x10>"},
                 {"inf", "string <inf>"},
                 {"1 2", "string <1 2>"},
                 {"\xc2\xb2", "string <\xc2\xb2>"}});
}

TEST(AttributeValue, Tuples) {
    expectShown(
        {{"( 5 )", "int 5"},
         {"(5.)", "float 5"},
         {"(1,\t2)", "v2i 1 2"},
         {"(1,2.5)", "v2f 1 2.5"},
         {"(1, 2, 3)", "v3i 1 2 3"},
         {"(1.0, 2, -)", "v3f 1 2 0"},
         {"(0,0,639,479)", "box2i (0 0) (639 479)"},
         {"(0,.0,1,1)", "string <(0,.0,1,1)>"},
         {"(0,0.5,3000000000,1)", "box2f (0 0.5) (3e+09 1)"},
         {"(1,2,3,4,5,6,7,8,9)", "m33f 1 2 3 4 5 6 7 8 9"},
         {"(1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,1e40)", "m44f 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 inf"},
         {"(1,2,3,4,5)", "string <(1,2,3,4,5)>"},
         {"(1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17)",
          "string <(1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17)>"},
         {"(1,,2)", "string <(1,,2)>"},
         {"(1, \t,2)", "string <(1, \t,2)>"},
         {"(1,2,)", "string <(1,2,)>"},
         {"()", "string <()>"},
         {"(", "string <(>"},
         {"(1,2) x", "string <(1,2) x>"},
         {"(1,2))", "string <(1,2))>"},
         {"(1,2", "string <(1,2>"},
         {"(1,2 3)", "string <(1,2 3)>"}});
}

TEST(AttributeValue, Strings) {
    expectShown({{"lighting", "string <lighting>"},
                 {"'hello world'", "string <hello world>"},
                 {"\" 12 \"", "string < 12 >"},
                 {"'oops", "string <'oops>"},
                 {"'oops\"", "string <'oops\">"},
                 {"\"", "string <>"},
                 {"''", "string <>"},
                 {"'''", "string <'>"},
                 {"'a' b'", "string <a' b>"},
                 {"x\v", "string <x\v>"}});  // not a blank here
}

TEST(AttributeText, RunsOfSeparatorsAndInnerBlanks) {
    Imf::Header header;
    EXPECT_TRUE(parse(header, "  owner name = lighting;frame=12;;\n ; gamma\t=2.2; ;").empty());
    EXPECT_EQ(shown(header, "owner name"), "string <lighting>");
    EXPECT_EQ(shown(header, "frame"), "int 12");
    EXPECT_EQ(shown(header, "gamma"), "float 2.20000005");
    EXPECT_TRUE(parse(header, "frame=1;frame=2").empty());
    EXPECT_EQ(shown(header, "frame"), "int 2");
}

TEST(AttributeText, Faults) {
    const struct {
        const char* text;
        int code;
        const char* message;
    } rows[] = {{"=1", -1, "attribute name expected at position 0"},
                {" \n =1", -1, "attribute name expected at position 0"},
                {"a=1; ; =", -1, "attribute name expected at position 7"},
                {"a=", -2, "attribute value expected at position 2"},
                {" a= \t ;b=1", -2, "attribute value expected at position 5"},
                {"a", -3, "Unexpected end of stream at position 1"},
                {" a  ", -3, "Unexpected end of stream at position 3"},
                {"", -3, "Unexpected end of stream at position 0"},
                {" \t\r\n", -3, "Unexpected end of stream at position 0"},
                {"a=1;b", -3, "Unexpected end of stream at position 5"},
                {"  ;a=1", -4, "Unexpected token ';' at position 0"},
                {"a b;c=1", -4, "Unexpected token ';' at position 3"},
                {"a=1 b=2", -4, "Unexpected token '=' at position 5"},
                {"a==", -4, "Unexpected token '=' at position 2"},
                {"a='x=1'", -4, "Unexpected token '=' at position 4"},
                {"a='x;y'", -3, "Unexpected end of stream at position 7"}};
    for (const auto& row : rows) {
        Imf::Header header;
        const ErrorCode error = parse(header, row.text);
        EXPECT_EQ(error.getError(), row.code) << row.text;
        EXPECT_STREQ(error.message(), row.message) << row.text;
        EXPECT_STREQ(error.operation(), "WriteEXRExtraAttributes");
    }
    Imf::Header header;
    EXPECT_FALSE(parse(header, "kept=1;b=;c=2").empty());
    EXPECT_EQ(shown(header, "kept") + " " + shown(header, "c"), "int 1 none");
    EXPECT_EQ(WriteEXRExtraAttributes(header, nullptr).getError(), -3);
}

TEST(AttributeText, NothingBeforeItIsTouched) {
    Imf::Header header;
    char buffer[] = "   =1";
    ExrHeaderWrapper wrapper(header);
    EXPECT_EQ(AttrParser<ExrHeaderWrapper>::WriteEXRExtraAttributes(wrapper, buffer + 2).getError(), -1);
    EXPECT_STREQ(buffer, "   ");
}

TEST(AttributeTuples, IntegersByCount) {
    int values[16];
    for (int i = 0; i < 16; ++i)
        values[i] = i + 1;
    for (int count = -1; count <= 17; ++count) {
        Imf::Header header;
        const std::string type = count == 1    ? "int 1"
                                 : count == 2  ? "v2i 1 2"
                                 : count == 3  ? "v3i 1 2 3"
                                 : count == 4  ? "box2i (1 2) (3 4)"
                                 : count == 9  ? "m33d 1 2 3 4 5 6 7 8 9"
                                 : count == 16 ? "m44d 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16"
                                               : "none";
        EXPECT_EQ(ExrHeaderWrapper(header).addvec("a", count, values), type != "none");
        EXPECT_EQ(shown(header, "a"), type);
    }
}

// Gives the process a numeric locale of another name, with a decimal comma where the system can make one.
class NumericLocale : public testing::Test {
  protected:
    void SetUp() override {
        testing_tools::writeFile(
            folder_ / "source",
            "LC_CTYPE\ncopy \"POSIX\"\nEND LC_CTYPE\n"
            "LC_NUMERIC\ndecimal_point \",\"\nthousands_sep \"\"\ngrouping -1\nEND LC_NUMERIC\n");
        // It warns, with exit code 1, of the categories that are not there.
        const std::string command = "localedef -c -f ANSI_X3.4-1968 -i '" + (folder_ / "source") + "' '" +
                                    (folder_ / "comma") + "' >/dev/null 2>&1";
        comma_ = std::system(command.c_str()) != -1 && ::setenv("LOCPATH", (folder_ / "").c_str(), 1) == 0 &&
                 std::setlocale(LC_NUMERIC, "comma") != nullptr;
        if (!comma_ && std::setlocale(LC_NUMERIC, "C.utf8") == nullptr) GTEST_SKIP() << "no locale but C";
        name_ = current();
    }
    void TearDown() override {
        ::unsetenv("LOCPATH");
        std::setlocale(LC_NUMERIC, "C");
    }
    static std::string current() { return std::setlocale(LC_NUMERIC, nullptr); }

    const testing_tools::TempFolder folder_;
    std::string name_;
    bool comma_ = false;
};

TEST_F(NumericLocale, DoesNotMatterAndIsBackAfterwards) {
    EXPECT_EQ(std::strtod("2.5", nullptr), comma_ ? 2.0 : 2.5);
    Imf::Header header;
    EXPECT_TRUE(parse(header, "g=2.5").empty());
    EXPECT_EQ(shown(header, "g"), "float 2.5");
    EXPECT_EQ(current(), name_);
    EXPECT_FALSE(parse(header, "g").empty());
    EXPECT_EQ(current(), name_);
}

TEST_F(NumericLocale, StaysSwitchedWhenTheHeaderThrows) {
    Imf::Header header;
    EXPECT_THROW((void)parse(header, "a=1;compression=3;b=2"), Iex::TypeExc);
    EXPECT_EQ(current(), "C");
    EXPECT_EQ(shown(header, "a"), "int 1");
    EXPECT_EQ(shown(header, "b"), "none");
}

TEST_F(NumericLocale, CheckTellsWhatIsWrongAndKeepsTheLocale) {
    for (const char* right : {(const char*)nullptr, "", "a=2.5;pixelAspectRatio=2.0", "dataWindow=(5,5,0,0)",
                              "name=x", "stampText=hello", "cameraFov=40.0"})
        EXPECT_TRUE(checkExtraAttributes(right).empty()) << checkExtraAttributes(right).describe();
    EXPECT_STREQ(checkExtraAttributes("a=1;b").message(), "Unexpected end of stream at position 5");
    for (const char* refused : {"compression=3", "cameraFov=40", "name=5", "channels=x", "stampText=1",
                                "pixelAspectRatio=0.0", "displayWindow=(1,1,0,0)"}) {
        const ErrorCode error = checkExtraAttributes(refused);
        EXPECT_EQ(error.getError(), -5) << refused;
        EXPECT_STRNE(error.message(), "");
    }
    EXPECT_EQ(current(), name_);
}

}  // namespace
