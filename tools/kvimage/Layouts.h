#pragma once
// Pixel layouts as the tool's user writes them: four-character codes, numbers, hex.

#include <string>

#include "ole/image/KvImageDefs.h"

namespace KvCli {

// The code as text: four characters (control bytes shown as \xNN), or the number.
std::string codeText(Kv::Image::Format format);

// A four-character code (shorter codes are padded with blanks at the front, as " RGB" is),
// a decimal number, or 0x followed by hex digits.
bool parseFormat(const std::string& text, Kv::Image::Format& format);

// "WxH" with both at least 1; false for anything else.
bool parseSize(const std::string& text, unsigned int& width, unsigned int& height);

}  // namespace KvCli
