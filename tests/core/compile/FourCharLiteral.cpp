// Compiled alone by ctest (see tests/CMakeLists.txt), once per LITERAL: the four-character literal
// must compile, every other one must be refused by the compiler.
#include "psdkit/core/PSDFourCharCode.hpp"

// The literal type is checked entirely while compiling; a code takes it implicitly.
const psdkit::PSDFourCharCode code = psdkit::PSDFourCharLiteral(LITERAL);
