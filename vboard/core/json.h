#pragma once
// One JSON type for traces, board files and the control protocol: the keys keep the order in
// which they were written, so that people can read what machines exchange.

#include <nlohmann/json.hpp>

namespace vb {

using Json = nlohmann::ordered_json;

} // namespace vb
