#include "oiio/extra_record.h"

#include <OpenImageIO/strutil.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <type_traits>
#include <vector>

namespace rimg_imageio {

namespace {

namespace Strutil = OIIO::Strutil;
using OIIO::TypeDesc;

// A line is one of these, names and texts in quotes:
//     origin X Y
//     channel TYPE "NAME"
//     attribute TYPE "NAME" VALUE,VALUE...
// A type is "int", or "float:16:2:0" with the numbers of its aggregate and its meaning and the length of an
// array: OpenImageIO does not read all the names back that it gives to types.
constexpr const char* kFirstLine = "rimg.imageio 1";
constexpr std::size_t kMaxValues = 4096;

std::string quoted(OIIO::string_view text) {
    return '"' + Strutil::escape_chars(text) + '"';
}

bool takeQuoted(OIIO::string_view& line, std::string& text) {
    OIIO::string_view raw;
    Strutil::skip_whitespace(line);
    if (line.empty() || line.front() != '"' || !Strutil::parse_string(line, raw)) return false;
    text = Strutil::unescape_chars(raw);
    return true;
}

std::string typeText(const TypeDesc& type) {
    const std::string base = TypeDesc(static_cast<TypeDesc::BASETYPE>(type.basetype)).c_str();
    if (type == TypeDesc(static_cast<TypeDesc::BASETYPE>(type.basetype))) return base;
    return base + ':' + std::to_string(type.aggregate) + ':' + std::to_string(type.vecsemantics) + ':' +
           std::to_string(type.arraylen);
}

// TypeUnknown when the text is no type.
TypeDesc typeFromText(OIIO::string_view text) {
    const std::vector<OIIO::string_view> words = Strutil::splitsv(text, ":");
    if (words.empty()) return OIIO::TypeUnknown;
    TypeDesc type{std::string(words.front())};
    if (words.size() == 1) return type;
    const int aggregate = words.size() == 4 ? Strutil::stoi(words[1]) : 0;
    for (const int known : {TypeDesc::SCALAR, TypeDesc::VEC2, TypeDesc::VEC3, TypeDesc::VEC4,
                            TypeDesc::MATRIX33, TypeDesc::MATRIX44}) {
        if (aggregate != known) continue;
        type.aggregate = static_cast<unsigned char>(aggregate);
        type.vecsemantics = static_cast<unsigned char>(Strutil::stoi(words[2]));
        type.arraylen = std::clamp(Strutil::stoi(words[3]), 0, static_cast<int>(kMaxValues));
        return type;
    }
    return OIIO::TypeUnknown;
}

std::string valueText(const OIIO::ParamValue& attribute, std::size_t index) {
    const char* at = static_cast<const char*>(attribute.data()) + index * attribute.type().basesize();
    char number[32];
    switch (attribute.type().basetype) {
        case TypeDesc::INT32: return std::to_string(*reinterpret_cast<const int*>(at));
        case TypeDesc::UINT32: return std::to_string(*reinterpret_cast<const unsigned*>(at));
        case TypeDesc::STRING: return quoted(*reinterpret_cast<const OIIO::ustring*>(at));
        default: break;
    }
    std::snprintf(number, sizeof number, "%.9g", static_cast<double>(*reinterpret_cast<const float*>(at)));
    return number;
}

bool isKept(const TypeDesc& type) {
    const bool known = type.basetype == TypeDesc::INT32 || type.basetype == TypeDesc::UINT32 ||
                       type.basetype == TypeDesc::FLOAT || type.basetype == TypeDesc::STRING;
    return known && type.basevalues() >= 1 && type.basevalues() <= kMaxValues;
}

// The next value, with the comma before it unless it is the first.
template <class Value>
bool takeValue(OIIO::string_view& line, Value& value) {
    if constexpr (std::is_same_v<Value, OIIO::ustring>) {
        std::string text;
        if (!takeQuoted(line, text)) return false;
        value = OIIO::ustring(text);
        return true;
    } else if constexpr (std::is_same_v<Value, float>) {
        return Strutil::parse_float(line, value);
    } else {
        const std::string word = Strutil::parse_while(line, "-0123456789");
        value = static_cast<Value>(std::strtoll(word.c_str(), nullptr, 10));
        return !word.empty();
    }
}

template <class Value>
void takeAttribute(OIIO::string_view line, const std::string& name, const TypeDesc& type,
                   OIIO::ParamValueList& attributes) {
    std::vector<Value> values(type.basevalues());
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (i > 0 && !Strutil::parse_char(line, ',')) return;
        Strutil::skip_whitespace(line);
        if (!takeValue(line, values[i])) return;
    }
    attributes.attribute(name, type, 1, values.data());
}

void takeLine(OIIO::string_view line, ExtraRecord& extra) {
    const std::string kind = Strutil::parse_word(line);
    if (kind == "origin") {
        int x = 0, y = 0;
        if (!Strutil::parse_int(line, x) || !Strutil::parse_int(line, y)) return;
        extra.originX = x;
        extra.originY = y;
        return;
    }
    Strutil::skip_whitespace(line);
    const TypeDesc type = typeFromText(Strutil::parse_until(line, " "));
    std::string name;
    if (!takeQuoted(line, name) || name.empty()) return;
    if (kind == "channel") {
        extra.types[name] = type;
    } else if (kind == "attribute" && isKept(type)) {
        switch (type.basetype) {
            case TypeDesc::INT32: takeAttribute<int>(line, name, type, extra.attributes); break;
            case TypeDesc::UINT32: takeAttribute<unsigned>(line, name, type, extra.attributes); break;
            case TypeDesc::STRING: takeAttribute<OIIO::ustring>(line, name, type, extra.attributes); break;
            default: takeAttribute<float>(line, name, type, extra.attributes); break;
        }
    }
}

}  // namespace

std::string encodeExtra(const ExtraRecord& extra) {
    std::string lines;
    if (extra.originX != 0 || extra.originY != 0)
        lines += "origin " + std::to_string(extra.originX) + ' ' + std::to_string(extra.originY) + '\n';
    for (const auto& [name, type] : extra.types)
        lines += "channel " + typeText(type) + ' ' + quoted(name) + '\n';
    for (const OIIO::ParamValue& attribute : extra.attributes) {
        if (!isKept(attribute.type())) continue;
        std::string line = "attribute " + typeText(attribute.type()) + ' ' + quoted(attribute.name());
        for (std::size_t i = 0; i < attribute.type().basevalues(); ++i)
            line += (i == 0 ? " " : ",") + valueText(attribute, i);
        if (lines.size() + line.size() < static_cast<std::size_t>(kMaxExtraText) / 2) lines += line + '\n';
    }
    return lines.empty() ? "" : std::string(kFirstLine) + '\n' + lines;
}

bool decodeExtra(const std::string& text, ExtraRecord& extra) {
    const std::vector<OIIO::string_view> lines = Strutil::splitsv(text, "\n");
    if (lines.empty() || lines.front() != kFirstLine) return false;
    for (std::size_t i = 1; i < lines.size(); ++i)
        takeLine(lines[i], extra);
    return true;
}

}  // namespace rimg_imageio
