# Third-party libraries, all from Debian packages. Only Exiv2 ships a CMake package;
# the others come through pkg-config.
find_package(PkgConfig REQUIRED)
pkg_check_modules(LIBDEFLATE REQUIRED IMPORTED_TARGET libdeflate)
pkg_check_modules(LCMS2 REQUIRED IMPORTED_TARGET lcms2)
pkg_check_modules(LIBPLIST REQUIRED IMPORTED_TARGET libplist-2.0)
# Debian's libutf8proc.pc reports an older version than the library: require none.
pkg_check_modules(UTF8PROC REQUIRED IMPORTED_TARGET libutf8proc)
find_package(exiv2 REQUIRED CONFIG)

# Everything the library's sources use; linked privately into the library and its tests.
set(PSDKIT_PRIVATE_DEPS
    PkgConfig::LIBDEFLATE PkgConfig::LCMS2 PkgConfig::LIBPLIST PkgConfig::UTF8PROC exiv2lib)

# The command-line tool only: PNG files through libspng, JSON output through nlohmann/json.
if(PSDKIT_BUILD_TOOLS)
  pkg_check_modules(SPNG REQUIRED IMPORTED_TARGET spng)
  find_package(nlohmann_json 3 REQUIRED CONFIG)
endif()
