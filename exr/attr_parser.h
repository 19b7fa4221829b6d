#pragma once

#include <ImfForward.h>

#include "../rawimage/export.h"
#include "../support/error_code.h"

// Free-form metadata as one text, "name=value; name=value", and the typed OpenEXR attributes that it
// describes.
//
// Blanks (space, tab, line feed, carriage return) around names, values and separators do not count, nor do
// empty places between semicolons. Names and values hold any bytes but '=', ';' and NUL; quotes do not
// protect these. The spelling of a value decides its type:
//
//     12  -3  +7               int
//     2.2  -1.5e-2             float (a digit or sign first, then digits, signs, '.' and 'e')
//     (1,2)  (1,2,3)           v2i, v3i; v2f, v3f when an element is no integer
//     (0,0,639,479)            box2i, min then max; box2f
//     nine, sixteen elements   m33f, m44f row by row, also when all are integers
//     (5)                      int or float
//     'a b'  "a b"             string without its quotes
//     anything else            string, tuples that are not of these kinds included
//
// Meant, as texts in use rely on them: a lone sign is the int 0; what follows a number that ends early is
// dropped (1-2 is 1.0); .5, 1E5 and 0x10 are strings; integers wrap to 32 bits.

// A header as the parser sees it.
class RAWIMAGE_EXPORT ExrHeaderWrapper {
  public:
    explicit ExrHeaderWrapper(Imf::Header& target) : header(target) {}

    // Inserts `count` integers: 1 int, 2 v2i, 3 v3i, 4 box2i (min, max), 9 m33d, 16 m44d (row by row). False,
    // with nothing inserted, for any other count.
    bool addvec(const char* name, int count, const int* values);

    Imf::Header& header;
};

// The parser; it has no state. Exists for ExrHeaderWrapper.
template <class HeaderWrapper>
class RAWIMAGE_EXPORT AttrParser {
  public:
    // Inserts the attributes of `text`, which it writes into: the text must be the caller's own,
    // NUL-terminated copy. Each attribute goes in as soon as it is read, over one of the same name and type,
    // so those before an error stay. `strtod` must see the "C" locale.
    //
    // Errors, with the place as byte offset from the first byte that is not blank:
    //     -1  "attribute name expected at position %d"
    //     -2  "attribute value expected at position %d"
    //     -3  "Unexpected end of stream at position %d"
    //     -4  "Unexpected token '%c' at position %d"
    // What the header throws passes through: Iex::TypeExc where the name holds an attribute of another type.
    static ErrorCode WriteEXRExtraAttributes(HeaderWrapper& header, char* text);

    // Inserts `count` elements as a tuple of ints or floats (Number). False, with nothing inserted, when one
    // is not spelled as such a number or the count is not 1, 2, 3, 4, 9 or 16.
    template <class Number>
    static bool writeVec(int count, HeaderWrapper& header, const char* name, char** elements);
};

// Runs the parser with the process's numeric locale switched to "C". The locale is back when this returns; an
// exception of the header passes through and leaves it at "C". Process-wide: no other thread may rely on the
// locale meanwhile. A null text counts as "".
RAWIMAGE_EXPORT ErrorCode WriteEXRExtraAttributes(Imf::Header& header, char* text);

namespace MUtils {
inline namespace v1 {

// For attributes that no text can express: puts them into the headers of an ExrFile (setHeaderEditor).
class RAWIMAGE_EXPORT ExrHeaderEditor {
  public:
    virtual ~ExrHeaderEditor() = default;
    // `header` is that of part `part`, complete with its channels but for camera and texts, which go over
    // attributes of the same name and type. The windows stay as they are, whatever this does to them.
    virtual void edit(Imf::Header& header, int part) = 0;
};

// What is wrong with a text, found before any file exists: the parser's error, or what a header with the
// attributes that every EXR file of this module holds (the camera's among them) throws at it, as an error
// with code -5. Null and "" are right. The locale is back afterwards in every case.
RAWIMAGE_EXPORT ErrorCode checkExtraAttributes(const char* text);

}  // namespace v1
}  // namespace MUtils
