#pragma once

// Marks what a shared library exports; every other symbol of it is hidden. The macro precedes a function's
// declaration, and the name in the definition of a class. A class that hosts derive from is marked even if
// all of its members are inline, so that its type information is the same in the library and in the host.
#define RAWIMAGE_EXPORT [[gnu::visibility("default")]]
