# Debian's libmupdf-dev ships static archives only, so MuPDF's own dependencies
# are linked explicitly.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)

find_path(MUPDF_INCLUDE_DIR mupdf/fitz.h REQUIRED)
find_library(MUPDF_LIBRARY NAMES mupdf REQUIRED)
find_library(MUPDF_THIRD_LIBRARY NAMES mupdf-third REQUIRED)
pkg_check_modules(MUPDF_DEPS REQUIRED IMPORTED_TARGET harfbuzz freetype2 libopenjp2 libjpeg zlib gumbo)
find_library(JBIG2DEC_LIBRARY NAMES jbig2dec REQUIRED)
find_library(MUJS_LIBRARY NAMES mujs REQUIRED)

add_library(vellira_mupdf INTERFACE)
target_include_directories(vellira_mupdf SYSTEM INTERFACE ${MUPDF_INCLUDE_DIR})
target_link_libraries(vellira_mupdf INTERFACE
  ${MUPDF_LIBRARY} ${MUPDF_THIRD_LIBRARY} PkgConfig::MUPDF_DEPS
  ${JBIG2DEC_LIBRARY} ${MUJS_LIBRARY} Threads::Threads m)

pkg_check_modules(UTF8PROC REQUIRED IMPORTED_TARGET libutf8proc)
pkg_check_modules(RE2 REQUIRED IMPORTED_TARGET re2)
find_path(CLI11_INCLUDE_DIR CLI/CLI.hpp REQUIRED)
pkg_check_modules(CURL REQUIRED IMPORTED_TARGET libcurl)
pkg_check_modules(GMIME REQUIRED IMPORTED_TARGET gmime-3.0)
pkg_check_modules(TESSERACT REQUIRED IMPORTED_TARGET tesseract lept)
find_package(nlohmann_json 3.10 REQUIRED)
pkg_check_modules(SQLITE3 REQUIRED IMPORTED_TARGET sqlite3)
pkg_check_modules(SYSTEMD REQUIRED IMPORTED_TARGET libsystemd)

if(VELLIRA_BUILD_GUI)
  find_package(Qt6 REQUIRED COMPONENTS Widgets DBus Test)
endif()
