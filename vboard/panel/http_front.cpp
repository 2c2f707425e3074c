#include "panel/http_front.h"

#include "panel/assets.h"
#include "panel/doorway.h"

#include <httplib.h>

namespace vb::panel {

namespace {

using httplib::Request;
using httplib::Response;

constexpr char kJsonType[] = "application/json";
constexpr std::size_t kLongestQuestion = 64 << 10;
// How long a page may read nothing before it is given up.
constexpr std::chrono::minutes kPagePatience(10);

// A thread for each connection, for each page has one for itself; beyond so many they wait.
class Threads : public httplib::TaskQueue {
  public:
    void enqueue(std::function<void()> job) override {
        const std::lock_guard lock(mutex_);
        jobs_.push_back(std::move(job));
        if (running_ < kMostThreads) {
            std::thread([this] { work(); }).detach();
            ++running_;
        }
    }
    void shutdown() override {} // it ends with the process

  private:
    static constexpr std::size_t kMostThreads = Pages::kMost + 60;

    void work() {
        std::unique_lock lock(mutex_);
        while (!jobs_.empty()) {
            const std::function<void()> job = std::move(jobs_.front());
            jobs_.pop_front();
            lock.unlock();
            job();
            lock.lock();
        }
        --running_;
    }

    std::mutex mutex_;
    std::deque<std::function<void()>> jobs_;
    std::size_t running_ = 0;
};

class HttpFront : public httplib::Server {
  public:
    HttpFront(UniqueFd listener, const Guard& guard, const Service& service, Pages& pages)
        : guard_(guard), service_(service), pages_(pages) {
        svr_sock_ = listener.release();
        new_task_queue = [] { return new Threads; }; // NOLINT: it is the server's
        set_limits();
        set_default_headers({{"Content-Security-Policy",
                              "default-src 'self'; img-src 'self' data:; style-src 'self'; "
                              "script-src 'self'"},
                             {"X-Content-Type-Options", "nosniff"},
                             {"Referrer-Policy", "no-referrer"},
                             {"Cache-Control", "no-store"}});
        // Asked before a body is read.
        set_pre_routing_handler([this](const Request& request, Response& response) {
            return receive(request, response) ? HandlerResponse::Handled
                                              : HandlerResponse::Unhandled;
        });
        Post("/ask", [this](const Request& request, Response& response) {
            put(service_.ask(request.body), response);
        });
        set_error_handler([](const Request&, Response& response) {
            if (response.body.empty()) {
                put(failed(response.status, response.status == 404   ? "there is nothing here"
                                            : response.status == 413 ? "the question is too long"
                                                                     : "this is no request"),
                    response);
            }
        });
    }

  private:
    void set_limits() {
        set_keep_alive_max_count(1); // what is left of a refused request is no other request
        set_payload_max_length(kLongestQuestion);
        set_write_timeout(kPagePatience);
        set_tcp_nodelay(true);
    }

    static void put(const Reply& reply, Response& response) {
        response.status = reply.status;
        response.set_content(reply.body, kJsonType);
    }

    static Knock knock_of(const Request& request) {
        Knock knock;
        knock.method = request.method;
        knock.path = request.path;
        knock.came_to = host_of(request.local_addr, request.local_port);
        knock.port = request.local_port;
        knock.host = request.get_header_value("Host");
        knock.origin = request.get_header_value("Origin");
        knock.fetch_site = request.get_header_value("Sec-Fetch-Site");
        knock.content_type = request.get_header_value("Content-Type");
        knock.content_encoding = request.get_header_value("Content-Encoding");
        knock.transfer_encoding = request.get_header_value("Transfer-Encoding");
        knock.token = request.path == "/events" ? request.get_param_value("token")
                                                : request.get_header_value("X-Panel-Token");
        return knock;
    }

    // Whether that was all there is to answer.
    bool receive(const Request& request, Response& response) {
        if (const auto refusal = guard_.refuses(knock_of(request))) {
            put(failed(refusal->status, refusal->error), response);
            return true;
        }
        return request.method != "GET" ? false : get(request.path, response);
    }

    bool get(const std::string& path, Response& response) {
        if (const Asset* asset = find_asset(path)) {
            response.status = 200;
            response.set_content(asset->bytes.data(), asset->bytes.size(),
                                 std::string(asset->type));
        } else if (path == "/verbs") {
            put(service_.verbs(), response);
        } else if (path == "/images") {
            put(service_.images(), response);
        } else if (path == "/events") {
            open_page(response);
        } else {
            return false;
        }
        return true;
    }

    void open_page(Response& response) {
        std::shared_ptr<Page> page = pages_.open();
        if (!page) {
            put(failed(503, "too many pages are open"), response);
            return;
        }
        response.status = 200;
        response.set_chunked_content_provider(
            "text/event-stream", [page](std::size_t, httplib::DataSink& sink) {
                const Piece piece = page->next(std::chrono::seconds(1));
                // Who waits for nothing notices so that the page is gone.
                return piece ? sink.write(piece->data(), piece->size()) : sink.is_writable();
            });
    }

    const Guard& guard_;
    const Service& service_;
    Pages& pages_;
};

} // namespace

void serve_http(UniqueFd listener, const Guard& guard, const Service& service, Pages& pages) {
    HttpFront front(std::move(listener), guard, service, pages);
    front.listen_after_bind();
}

} // namespace vb::panel
