// Texts of devices, made fit for screens and JSON documents.

#include "text/text.h"

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

using namespace ivra::bsp;

namespace {

void require(bool condition)
{
    if (!condition)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(data, data + size);

    const std::string shown = printable(text);
    require(shown.size() <= text.size());
    require(printable(shown) == shown);
    for (const char c : shown)
        require(c == '\0' || (static_cast<unsigned char>(c) >= 0x20 && c != 0x7f));

    const std::string valid = valid_utf8(text);
    require(valid_utf8(valid) == valid);
    require(strlen_utf8(valid) <= text.size()); // throws when it is not UTF-8

    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer{buffer};
    writer.String(valid.data(), static_cast<rapidjson::SizeType>(valid.size()));
    rapidjson::Document document;
    document.Parse<rapidjson::kParseValidateEncodingFlag>(buffer.GetString(), buffer.GetSize());
    require(!document.HasParseError());
    require(std::string(document.GetString(), document.GetStringLength()) == valid);
    return 0;
}
