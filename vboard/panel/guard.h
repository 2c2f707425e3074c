#pragma once
// Who may come in. A browser lends its hands to every page it shows: a page of another site can
// send requests here, and a name of its own can lead here. What the browser says of a request
// tells.

#include <optional>
#include <string>

namespace vb::panel {

struct Knock {
    std::string method;
    std::string path;
    std::string came_to; // address and port that the connection was made to, as "Host" has it
    int port = 0;
    // Headers; empty where there is none.
    std::string host;
    std::string origin;
    std::string fetch_site;
    std::string content_type;
    std::string content_encoding;
    std::string transfer_encoding;
    std::string token; // of the header, or of the event stream's address
};

struct Refusal {
    int status;
    std::string error;
};

class Guard {
  public:
    // `listens_at` as "Host" has it; an empty `token` is asked of nobody.
    Guard(std::string listens_at, std::string token)
        : listens_at_(std::move(listens_at)), token_(std::move(token)) {}

    // Why not; before anything but the headers is read.
    std::optional<Refusal> refuses(const Knock& knock) const;

  private:
    bool knows_host(const std::string& host, const Knock& knock) const;
    bool has_token(const std::string& given) const;

    std::string listens_at_;
    std::string token_;
};

} // namespace vb::panel
