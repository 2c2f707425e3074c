#include "models/frequency_verb.h"

#include <fmt/format.h>

namespace vb {

void add_frequency_verb(Verbs& verbs, const std::string& chip, unsigned device,
                        const std::function<Json(unsigned output)>& hertz) {
    verbs.add_for("device", device,
                  {chip + ".frequency",
                   {{"output"}},
                   "what an output gives, in Hz",
                   [chip, device, hertz](const Json& arguments) -> Json {
                       const auto output = arguments["output"].get<std::int64_t>();
                       const Json result = output < 0 || output > 255
                                               ? Json()
                                               : hertz(static_cast<unsigned>(output));
                       if (result.is_null()) {
                           throw VerbError(fmt::format("{} {}: output {} gives no signal", chip,
                                                       device, output));
                       }
                       return result;
                   }});
}

} // namespace vb
