#ifndef IVRA_READINGS_TEXT_SCREEN_H
#define IVRA_READINGS_TEXT_SCREEN_H

#include "telemetry/health.h"

#include <rapidjson/document.h>

#include <cstddef>
#include <string>
#include <vector>

namespace ivra::bsp::readings {

/// The screen for people: a line a board, then what was found, worst first. `findings` are those of the host.
std::string make_text_screen(telemetry::health_t host, const std::vector<telemetry::finding_t>& findings,
                             const std::vector<rapidjson::Document>& boards, bool colored);

/// A text for a screen, of at most so many characters: the end of a longer one is "…".
std::string shortened(const std::string& text, std::size_t most);

} // namespace ivra::bsp::readings

#endif
