#include "models/support/frequency_verb.h"

#include <fmt/format.h>

namespace vb {

void add_frequency_verb(Verbs& verbs, const std::string& chip, unsigned device, unsigned least,
                        unsigned most, const std::function<Json(unsigned output)>& hertz) {
    verbs.add_for("device", device,
                  {chip + ".frequency",
                   {Argument::integer("output", least, most)},
                   "what an output gives, in Hz",
                   [chip, device, hertz](const Json& arguments) -> Json {
                       const auto output = arguments["output"].get<unsigned>();
                       Json result = hertz(output);
                       if (result.is_null()) {
                           throw VerbError(fmt::format("{} {}: output {} gives no signal", chip,
                                                       device, output));
                       }
                       return result;
                   }});
}

} // namespace vb
