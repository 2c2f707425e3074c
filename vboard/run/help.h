#pragma once
// What `vboard --help` and the help of its commands look like: as that of `halctl`.

#include <memory>

namespace CLI {
class FormatterBase;
}

namespace vb {

std::shared_ptr<CLI::FormatterBase> help_shape();

} // namespace vb
