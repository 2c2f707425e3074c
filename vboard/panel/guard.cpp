#include "panel/guard.h"

#include "panel/assets.h"

#include <fmt/format.h>

namespace vb::panel {

namespace {

// "application/json; charset=utf-8" too.
bool is_json(const std::string& content_type) {
    return content_type.substr(0, content_type.find_first_of("; ")) == "application/json";
}

} // namespace

bool Guard::knows_host(const std::string& host, const Knock& knock) const {
    for (const std::string& name :
         {listens_at_, knock.came_to, fmt::format("localhost:{}", knock.port),
          fmt::format("127.0.0.1:{}", knock.port), fmt::format("[::1]:{}", knock.port)}) {
        // The port that is HTTP's own is not said.
        if (host == name || (knock.port == 80 && host + ":80" == name)) {
            return true;
        }
    }
    return false;
}

// Takes as long for each token of the right length.
bool Guard::has_token(const std::string& given) const {
    if (given.size() != token_.size()) {
        return token_.empty();
    }
    unsigned different = 0;
    for (std::size_t i = 0; i < token_.size(); ++i) {
        different |= static_cast<unsigned char>(given[i] ^ token_[i]);
    }
    return different == 0;
}

std::optional<Refusal> Guard::refuses(const Knock& knock) const {
    constexpr char kOurs[] = "http://";
    if (!knows_host(knock.host, knock)) {
        return Refusal{403, "the panel does not go by this name"};
    }
    if (!knock.origin.empty() && !(knock.origin.starts_with(kOurs) &&
                                   knows_host(knock.origin.substr(sizeof kOurs - 1), knock))) {
        return Refusal{403, "a page of another site has no say here"};
    }
    if (!knock.fetch_site.empty() && knock.fetch_site != "same-origin" &&
        knock.fetch_site != "none") {
        return Refusal{403, "another site has no say here"};
    }
    // The page itself has to be there before it can show its token.
    const bool is_page = knock.method == "GET" && find_asset(knock.path) != nullptr;
    if (!is_page && !has_token(knock.token)) {
        return Refusal{403, "the token is missing: open the address that vboard printed"};
    }
    if (knock.method == "POST" && !is_json(knock.content_type)) {
        return Refusal{400, "a question is sent with Content-Type: application/json"};
    }
    if (!knock.content_encoding.empty() || !knock.transfer_encoding.empty()) {
        return Refusal{400, "a question is sent as it is, with Content-Length"};
    }
    return std::nullopt;
}

} // namespace vb::panel
