#include "Layouts.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>

namespace KvCli {

using namespace Kv::Image;

std::string codeText(Format format)
{
    const std::uint32_t v = std::uint32_t(format);
    if (format >= 0 && format < 0x10000) return std::to_string(int(format));
    std::string text;
    for (int i = 0; i < 4; ++i) {
        const unsigned char c = (v >> (8 * i)) & 0xFF;
        if (std::isprint(c)) {
            text += char(c);
        } else {
            char hex[8];
            std::snprintf(hex, sizeof hex, "\\x%02X", c);
            text += hex;
        }
    }
    return "'" + text + "'";
}

bool parseFormat(const std::string& text, Format& format)
{
    if (text.empty()) return false;
    char* end = nullptr;
    if (std::isdigit(static_cast<unsigned char>(text[0])) && text.size() > 1 && (text[1] == 'x' || text[1] == 'X')) {
        const unsigned long v = std::strtoul(text.c_str() + 2, &end, 16);
        if (*end || v > 0xFFFFFFFFul) return false;
        format = Format(std::int32_t(std::uint32_t(v)));
        return true;
    }
    const long number = std::strtol(text.c_str(), &end, 10);
    if (!*end && number >= -1 && number < 0x10000) {
        format = Format(number);
        return true;
    }
    if (text.size() > 4) return false;
    const std::string padded = std::string(4 - text.size(), ' ') + text;
    format = Format(fourCC(padded[0], padded[1], padded[2], padded[3]));
    return true;
}

bool parseSize(const std::string& text, unsigned int& width, unsigned int& height)
{
    const std::size_t x = text.find_first_of("xX");
    if (x == std::string::npos || x == 0 || x + 1 == text.size()) return false;
    for (std::size_t i = 0; i < text.size(); ++i)
        if (i != x && !std::isdigit(static_cast<unsigned char>(text[i]))) return false;
    const unsigned long w = std::strtoul(text.c_str(), nullptr, 10);
    const unsigned long h = std::strtoul(text.c_str() + x + 1, nullptr, 10);
    // The largest picture side a Surface describes with room to spare.
    if (w == 0 || h == 0 || w > 65535 || h > 65535) return false;
    width = unsigned(w);
    height = unsigned(h);
    return true;
}

}  // namespace KvCli
