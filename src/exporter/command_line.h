#ifndef IVRA_EXPORTER_COMMAND_LINE_H
#define IVRA_EXPORTER_COMMAND_LINE_H

#include "exporter/http_server.h"

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ivra::bsp::exporter {

struct arguments_t
{
    listen_address_t listen;
    std::vector<std::string> reader_words; ///< passed on to what reads the boards
    std::chrono::milliseconds max_age;
    std::optional<std::filesystem::path> text_file; ///< collect once, write it there, and end
};

/// Interprets the words after the program's name. Ends the process after help and the like, and with status 64 on a
/// wrong command line.
arguments_t parse_command_line(const std::vector<std::string_view>& words);

} // namespace ivra::bsp::exporter

#endif
