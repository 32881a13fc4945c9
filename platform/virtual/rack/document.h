#ifndef IVRA_VIRTUAL_DOCUMENT_H
#define IVRA_VIRTUAL_DOCUMENT_H

#include <rapidjson/document.h>

#include <filesystem>
#include <string>
#include <string_view>

namespace ivra::virtual_platform {

/// racks/rack.schema.json
extern const std::string_view rack_schema;

/// The member of `object` called `name`; null when it has none.
const rapidjson::Value* find(const rapidjson::Value& object, const char* name);

/// What a file describes.
enum class document_t
{
    rack,
    module
};

/// Parses the text of a rack or module file and checks it against the schema: what is left to check is what a schema
/// cannot say. `file` is named in errors. Throws file_error.
rapidjson::Document read_document(std::string_view text, const std::filesystem::path& file,
                                  document_t kind = document_t::rack);

} // namespace ivra::virtual_platform

#endif
