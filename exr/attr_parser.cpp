#include "exr/attr_parser.h"

#include <ImfBoxAttribute.h>
#include <ImfChannelList.h>
#include <ImfFloatAttribute.h>
#include <ImfHeader.h>
#include <ImfIntAttribute.h>
#include <ImfMatrixAttribute.h>
#include <ImfStringAttribute.h>
#include <ImfVecAttribute.h>

#include <algorithm>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <limits>
#include <string>
#include <type_traits>

#include "exr/header_facts.h"

namespace {

constexpr const char* kOperation = "WriteEXRExtraAttributes";

constexpr char kBlanks[] = " \t\n\r";
constexpr char kNumberStart[] = "-+0123456789";
constexpr char kIntRest[] = "0123456789";
constexpr char kFloatRest[] = "-+0123456789.e";

constexpr int kMaxElements = 16;

bool isBlank(char c) {
    return c != 0 && std::strchr(kBlanks, c) != nullptr;
}

char* skipBlanks(char* text) {
    return text + std::strspn(text, kBlanks);
}

// Ends the text that starts at `start` and reaches to `end` behind its last byte that is not blank.
void endTrimmed(char* start, char* end) {
    while (end > start && isBlank(end[-1]))
        --end;
    *end = 0;
}

bool isNumber(const char* text, const char* rest) {
    if (*text == 0 || std::strchr(kNumberStart, *text) == nullptr) return false;
    return text[1 + std::strspn(text + 1, rest)] == 0;
}

// Integers beyond long become its limits, then the low 32 bits count: 3000000000 is -1294967296.
int parseInt(const char* text) {
    return static_cast<int>(std::strtol(text, nullptr, 10));
}

// Rounds twice, text to double to float. Out of float's range a cast would be undefined, so what it gives on
// every machine is spelled out: the largest float up to half a step beyond it, infinity from there on.
float parseFloat(const char* text) {
    constexpr double kLargest = std::numeric_limits<float>::max();
    constexpr double kInfiniteFrom = 0x1.ffffffp127;
    const double value = std::strtod(text, nullptr);
    if (std::fabs(value) <= kLargest) return static_cast<float>(value);
    const float magnitude = std::fabs(value) < kInfiniteFrom ? std::numeric_limits<float>::max()
                                                             : std::numeric_limits<float>::infinity();
    return std::copysign(magnitude, value < 0 ? -1.0f : 1.0f);
}

template <class T>
void insert(Imf::Header& header, const char* name, const T& value) {
    header.insert(name, Imf::TypedAttribute<T>(value));
}

template <class Matrix, class Number>
Matrix toMatrix(const Number* values) {
    Matrix matrix;
    using Element = typename Matrix::BaseType;
    for (unsigned row = 0; row < Matrix::dimensions(); ++row)
        for (unsigned column = 0; column < Matrix::dimensions(); ++column)
            matrix[static_cast<int>(row)][column] = static_cast<Element>(*values++);
    return matrix;
}

// The attribute types of tuples by length; integer matrices are stored as double.
template <class Number>
bool insertTuple(Imf::Header& header, const char* name, int count, const Number* v) {
    using Vec2 = Imath::Vec2<Number>;
    using Element = std::conditional_t<std::is_same_v<Number, int>, double, float>;
    switch (count) {
        case 1: insert(header, name, v[0]); return true;
        case 2: insert(header, name, Vec2(v[0], v[1])); return true;
        case 3: insert(header, name, Imath::Vec3<Number>(v[0], v[1], v[2])); return true;
        case 4: insert(header, name, Imath::Box<Vec2>(Vec2(v[0], v[1]), Vec2(v[2], v[3]))); return true;
        case 9: insert(header, name, toMatrix<Imath::Matrix33<Element>>(v)); return true;
        case 16: insert(header, name, toMatrix<Imath::Matrix44<Element>>(v)); return true;
        default: return false;
    }
}

bool isTupleLength(std::ptrdiff_t count) {
    return (count >= 1 && count <= 4) || count == 9 || count == kMaxElements;
}

// Cuts `text` at its commas into `elements`, trimmed. It holds at most kMaxElements.
void splitElements(char* text, char** elements) {
    for (;; ++elements) {
        *elements = skipBlanks(text);
        char* const comma = std::strchr(text, ',');
        endTrimmed(*elements, comma != nullptr ? comma : *elements + std::strlen(*elements));
        if (comma == nullptr) return;
        text = comma + 1;
    }
}

// False when `value`, which starts with '(' and ends with no blank, is not a tuple.
template <class HeaderWrapper>
bool insertAsTuple(HeaderWrapper& header, const char* name, const char* value) {
    const char* close = std::strchr(value, ')');
    if (close == nullptr || close[1] != 0) return false;
    const std::ptrdiff_t count = std::count(value, close, ',') + 1;
    if (!isTupleLength(count)) return false;
    std::string scratch(value + 1, close);
    char* elements[kMaxElements];
    splitElements(scratch.data(), elements);
    const int length = static_cast<int>(count);
    const bool integers = length <= 4 && std::all_of(elements, elements + length,
                                                     [](char* e) { return isNumber(e, kIntRest); });
    return integers ? AttrParser<HeaderWrapper>::template writeVec<int>(length, header, name, elements)
                    : AttrParser<HeaderWrapper>::template writeVec<float>(length, header, name, elements);
}

// The text of a string value: between its quotes if it has a pair of the same kind. One quote alone is such a
// pair.
std::string unquoted(const std::string& value) {
    const bool quoted = (value[0] == '\'' || value[0] == '"') && value.back() == value[0];
    if (!quoted) return value;
    return value.size() < 2 ? std::string() : value.substr(1, value.size() - 2);
}

// `value` is trimmed and not empty.
template <class HeaderWrapper>
void insertAttribute(HeaderWrapper& header, const char* name, const char* value) {
    if (isNumber(value, kIntRest)) {
        insert(header.header, name, parseInt(value));
    } else if (isNumber(value, kFloatRest)) {
        insert(header.header, name, parseFloat(value));
    } else if (*value != '(' || !insertAsTuple(header, name, value)) {
        insert(header.header, name, unquoted(value));
    }
}

// The attributes that this module's headers may hold before a user's text reaches them. Header's own come
// with it.
Imf::Header sampleHeader() {
    Imf::Header header;
    for (const char* name : {"name", "type", "stampText"})
        insert(header, name, std::string());
    header.channels().insert("Z", Imf::Channel());
    insert(header, MUtils::kCameraTransformAttribute, Imath::M44f());
    insert(header, MUtils::kCameraProjectionAttribute, 0);
    for (const MUtils::CameraAttribute& attribute : MUtils::kCameraAttributes)
        insert(header, attribute.name, 0.0f);
    return header;
}

// The name of the process's numeric locale. setlocale() reuses what it returns, hence the copy.
struct NumericLocaleName {
    char text[256] = {};

    NumericLocaleName() {
        if (const char* current = std::setlocale(LC_NUMERIC, nullptr))
            std::strncpy(text, current, sizeof text - 1);
    }
};

}  // namespace

bool ExrHeaderWrapper::addvec(const char* name, int count, const int* values) {
    return insertTuple(header, name, count, values);
}

template <class HeaderWrapper>
template <class Number>
bool AttrParser<HeaderWrapper>::writeVec(int count, HeaderWrapper& header, const char* name,
                                         char** elements) {
    constexpr bool kInts = std::is_same_v<Number, int>;
    if (!isTupleLength(count)) return false;
    Number values[kMaxElements];
    for (int i = 0; i < count; ++i) {
        if (!isNumber(elements[i], kInts ? kIntRest : kFloatRest)) return false;
        if constexpr (kInts) {
            values[i] = parseInt(elements[i]);
        } else {
            values[i] = parseFloat(elements[i]);
        }
    }
    if constexpr (kInts) {
        return header.addvec(name, count, values);
    } else {
        return insertTuple(header.header, name, count, values);
    }
}

template <class HeaderWrapper>
ErrorCode AttrParser<HeaderWrapper>::WriteEXRExtraAttributes(HeaderWrapper& header, char* text) {
    char* const origin = skipBlanks(text);
    const auto at = [origin](const char* p) { return static_cast<int>(p - origin); };
    char* name = origin;
    do {
        char* const nameEnd = name + std::strcspn(name, "=;");
        if (*nameEnd == 0)
            return ErrorCode(kOperation, -3, "Unexpected end of stream at position %d", at(nameEnd));
        if (*nameEnd == ';')
            return ErrorCode(kOperation, -4, "Unexpected token '%c' at position %d", *nameEnd, at(nameEnd));
        endTrimmed(name, nameEnd);
        if (*name == 0) return ErrorCode(kOperation, -1, "attribute name expected at position %d", at(name));

        char* const value = skipBlanks(nameEnd + 1);
        char* const valueEnd = value + std::strcspn(value, "=;");
        if (*valueEnd == '=')
            return ErrorCode(kOperation, -4, "Unexpected token '%c' at position %d", *valueEnd, at(valueEnd));
        const bool last = *valueEnd == 0;
        endTrimmed(value, valueEnd);
        if (*value == 0)
            return ErrorCode(kOperation, -2, "attribute value expected at position %d", at(value));
        insertAttribute(header, name, value);

        name = last ? valueEnd : valueEnd + 1;
        name += std::strspn(name, "; \t\n\r");
    } while (*name != 0);
    return {};
}

template class AttrParser<ExrHeaderWrapper>;
template bool AttrParser<ExrHeaderWrapper>::writeVec<int>(int, ExrHeaderWrapper&, const char*, char**);
template bool AttrParser<ExrHeaderWrapper>::writeVec<float>(int, ExrHeaderWrapper&, const char*, char**);

ErrorCode WriteEXRExtraAttributes(Imf::Header& header, char* text) {
    char empty[] = "";
    const NumericLocaleName saved;
    std::setlocale(LC_NUMERIC, "C");
    ExrHeaderWrapper wrapper(header);
    ErrorCode result =
        AttrParser<ExrHeaderWrapper>::WriteEXRExtraAttributes(wrapper, text != nullptr ? text : empty);
    // Not the job of a guard: hosts that let a header's exception through expect the locale at "C".
    std::setlocale(LC_NUMERIC, saved.text);
    return result;
}

namespace MUtils {
inline namespace v1 {

ErrorCode checkExtraAttributes(const char* text) {
    if (text == nullptr || *text == 0) return {};
    std::string copy(text);
    const NumericLocaleName saved;
    try {
        Imf::Header header = sampleHeader();
        const Imath::Box2i ownWindow = header.dataWindow();
        ErrorCode result = WriteEXRExtraAttributes(header, copy.data());
        header.dataWindow() = ownWindow;  // the writers' own is what counts
        if (result.empty()) header.sanityCheck();
        return result;
    } catch (const std::exception& refusal) {
        std::setlocale(LC_NUMERIC, saved.text);
        return ErrorCode("checkExtraAttributes", -5, "%s", refusal.what());
    }
}

}  // namespace v1
}  // namespace MUtils
