// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

/// HTTP and WebSocket as the rest of Studio sees them: what carries them stays in listener.cpp.
namespace studio {

struct Request {
    std::string method;
    std::string path;                         ///< without the query, decoded
    std::map<std::string, std::string> query; ///< decoded
    std::string host;
    std::string origin; ///< "" without one
    std::string cookie;
    std::string authorization;
    std::string if_none_match;
    std::string content_type;
    bool has_studio_header = false; ///< X-Nyxus-Studio: 1, which no form and no image can send
    std::string body;
};

/// What stands behind the first '?' of a target, and the path before it. False for a target that
/// is none.
bool parse_target(std::string_view target, Request& request);

struct Response {
    unsigned status = 200;
    std::string type = "application/json";
    std::string body = {};
    std::vector<std::pair<std::string, std::string>> headers = {};
};

/// Answers a request, once, on any thread.
using Reply = std::function<void(Response)>;

/// A picture that is shared by all who watch it: header and JPEG, but for the index of the camera.
using Picture = std::shared_ptr<const std::vector<uint8_t>>;

/// A page that listens. All on the server's thread.
class Page {
public:
    virtual ~Page() = default;
    /// Never lost; a page that takes none for too long is cut off.
    virtual void send(std::shared_ptr<const std::string> event) = 0;
    /// In place of the camera's last one if that is still waiting.
    virtual void show(uint16_t camera, Picture picture) = 0;
};

/// What the server serves. All on the server's thread.
class Application {
public:
    virtual ~Application() = default;
    virtual void answer(Request request, Reply reply) = 0;
    /// Whether a page may listen: an answer that refuses it, or nothing.
    virtual std::unique_ptr<Response> refuse_page(const Request& request) = 0;
    /// The largest body that a request for this path may have.
    virtual uint64_t largest_body(const std::string& path) const = 0;
    virtual void opened(Page& page) = 0;
    virtual void said(Page& page, const std::string& text) = 0;
    virtual void closed(Page& page) = 0;
};

/// One thread serves all connections.
class Server {
public:
    /// Throws std::runtime_error where nothing can listen there; port 0 is any.
    Server(const std::string& address, uint16_t port);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    uint16_t port() const;
    /// Until stop(), or SIGINT or SIGTERM has called `ends`, who calls stop() in the end.
    void run(Application& application, std::function<void()> ends);
    void stop();
    /// Has it done on the server's thread; from any thread.
    void post(std::function<void()> work);

private:
    struct Implementation;
    std::unique_ptr<Implementation> implementation_;
};

} // namespace studio
