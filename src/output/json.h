#ifndef IVRA_OUTPUT_JSON_H
#define IVRA_OUTPUT_JSON_H

#include "output/section.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace ivra::bsp {

/// A message of the run.
struct log_message
{
    std::uint32_t kind; ///< 0 info, 1 error
    std::string text;
};

/// The document of a run: its reports, how it ended, and its messages.
class json_document
{
public:
    json_document();
    ~json_document();
    json_document(const json_document&) = delete;
    json_document& operator=(const json_document&) = delete;

    void add(const section& report);
    void add(const section::list& report);

    /// The text of the whole document, to which nothing can be added any more.
    std::string complete(bool success, const std::optional<std::string>& final_message,
                         const std::vector<log_message>& messages);

private:
    class writer;

    std::unique_ptr<writer> writer_;
};

} // namespace ivra::bsp

#endif
