// SPDX-License-Identifier: Apache-2.0
// The only file that sees Boost.
#include "server/http.h"

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>

#include <chrono>
#include <deque>
#include <set>
#include <stdexcept>

namespace studio {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
using asio::ip::tcp;
using beast::error_code;

constexpr size_t kMostConnections = 64;
constexpr uint32_t kMostHeaderBytes = 8192;
constexpr size_t kMostWaitingEvents = 2048;
constexpr size_t kMostSaidBytes = 16384;
constexpr auto kPatience = std::chrono::seconds(20);
constexpr char kPolicy[] =
    "default-src 'self'; img-src 'self' blob:; connect-src 'self'; object-src 'none'; "
    "base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

class PageConnection final : public Page, public std::enable_shared_from_this<PageConnection> {
public:
    PageConnection(beast::tcp_stream stream, Application& application,
                   std::shared_ptr<size_t> count)
        : socket_(std::move(stream)), application_(application), count_(std::move(count))
    {
        ++*count_;
    }
    ~PageConnection() override { --*count_; }

    void start(const http::request<http::string_body>& request)
    {
        auto timeout = websocket::stream_base::timeout::suggested(beast::role_type::server);
        timeout.idle_timeout = kPatience;
        timeout.keep_alive_pings = true;
        socket_.set_option(timeout);
        socket_.auto_fragment(false); // a picture is one piece already
        socket_.read_message_max(kMostSaidBytes);
        beast::get_lowest_layer(socket_).expires_never();
        socket_.async_accept(request, [self = shared_from_this()](error_code error) {
            if (error)
                return;
            self->is_open_ = true;
            self->application_.opened(*self);
            self->read();
        });
    }

    void send(std::shared_ptr<const std::string> event) override
    {
        if (!is_open_)
            return;
        if (events_.size() >= kMostWaitingEvents) {
            beast::get_lowest_layer(socket_).close(); // what reads sees it and ends
            return;
        }
        events_.push_back(std::move(event));
        write();
    }

    void show(uint16_t camera, Picture picture) override
    {
        if (!is_open_)
            return;
        pictures_[camera] = std::move(picture);
        write();
    }

private:
    void read()
    {
        socket_.async_read(buffer_, [self = shared_from_this()](error_code error, size_t) {
            if (error)
                return self->end();
            const std::string text = beast::buffers_to_string(self->buffer_.data());
            self->buffer_.clear();
            if (self->socket_.got_text())
                self->application_.said(*self, text);
            self->read();
        });
    }

    void write()
    {
        if (is_writing_ || !is_open_)
            return;
        const auto written = [self = shared_from_this()](error_code error, size_t) {
            self->is_writing_ = false;
            if (!error)
                self->write();
        };
        if (!events_.empty()) {
            is_writing_ = true;
            event_ = std::move(events_.front());
            events_.pop_front();
            socket_.text(true);
            socket_.async_write(asio::buffer(*event_), written);
        } else if (!pictures_.empty()) {
            // The camera behind the last one shown, so that none starves.
            auto next = pictures_.upper_bound(last_camera_);
            if (next == pictures_.end())
                next = pictures_.begin();
            is_writing_ = true;
            last_camera_ = next->first;
            picture_ = std::move(next->second);
            pictures_.erase(next);
            index_ = {static_cast<uint8_t>(last_camera_), static_cast<uint8_t>(last_camera_ >> 8)};
            socket_.binary(true);
            socket_.async_write(
                std::array<asio::const_buffer, 2>{asio::buffer(index_), asio::buffer(*picture_)},
                written);
        }
    }

    void end()
    {
        if (is_open_)
            application_.closed(*this);
        is_open_ = false;
    }

    websocket::stream<beast::tcp_stream> socket_;
    Application& application_;
    std::shared_ptr<size_t> count_;
    beast::flat_buffer buffer_;
    std::deque<std::shared_ptr<const std::string>> events_;
    std::map<uint16_t, Picture> pictures_;
    std::shared_ptr<const std::string> event_; ///< on its way
    Picture picture_;                          ///< the same
    std::array<uint8_t, 2> index_{};
    uint16_t last_camera_ = 0;
    bool is_open_ = false;
    bool is_writing_ = false;
};

class Connection : public std::enable_shared_from_this<Connection> {
public:
    Connection(tcp::socket socket, Application& application, std::shared_ptr<size_t> count)
        : stream_(std::move(socket)), application_(application), count_(std::move(count))
    {
        ++*count_;
    }
    ~Connection() { --*count_; }

    void read()
    {
        parser_.emplace();
        parser_->header_limit(kMostHeaderBytes);
        stream_.expires_after(kPatience);
        http::async_read_header(stream_, buffer_, *parser_,
                                [self = shared_from_this()](error_code error, size_t) {
                                    if (!error)
                                        self->read_body();
                                });
    }

private:
    std::string field(beast::string_view name)
    {
        const auto value = parser_->get()[name];
        return {value.data(), value.size()};
    }

    void read_body()
    {
        request_ = {};
        const auto method = parser_->get().method_string();
        const auto target = parser_->get().target();
        request_.method.assign(method.data(), method.size());
        if (!parse_target({target.data(), target.size()}, request_))
            return write({400, "text/plain", "bad target"}, false);
        parser_->body_limit(application_.largest_body(request_.path));
        http::async_read(stream_, buffer_, *parser_,
                         [self = shared_from_this()](error_code error, size_t) {
                             if (error == http::error::body_limit)
                                 return self->write({413, "text/plain", "too large"}, false);
                             if (!error)
                                 self->take();
                         });
    }

    void take()
    {
        request_.host = field("Host");
        request_.origin = field("Origin");
        request_.cookie = field("Cookie");
        request_.authorization = field("Authorization");
        request_.if_none_match = field("If-None-Match");
        request_.content_type = field("Content-Type");
        request_.has_studio_header = field("X-Nyxus-Studio") == "1";
        const bool keeps = parser_->get().keep_alive();
        if (websocket::is_upgrade(parser_->get())) {
            if (auto refused = application_.refuse_page(request_))
                return write(std::move(*refused), false);
            std::make_shared<PageConnection>(std::move(stream_), application_, count_)
                ->start(parser_->get());
            return;
        }
        request_.body = std::move(parser_->get().body());
        stream_.expires_never(); // a camera may take its time
        application_.answer(std::move(request_),
                            [self = shared_from_this(), keeps](Response response) {
                                asio::post(self->stream_.get_executor(),
                                           [self, keeps, response = std::move(response)]() mutable {
                                               self->write(std::move(response), keeps);
                                           });
                            });
    }

    void write(Response response, bool keeps)
    {
        answer_ = {};
        answer_.result(response.status);
        answer_.set(http::field::content_type, response.type);
        answer_.set("Content-Security-Policy", kPolicy);
        answer_.set("X-Content-Type-Options", "nosniff");
        answer_.set("Referrer-Policy", "no-referrer");
        answer_.set("Cross-Origin-Resource-Policy", "same-origin");
        answer_.set(http::field::cache_control, "no-cache");
        for (const auto& [name, value] : response.headers)
            answer_.set(name, value);
        answer_.body() = std::move(response.body);
        answer_.keep_alive(keeps);
        answer_.prepare_payload();
        stream_.expires_after(kPatience);
        http::async_write(stream_, answer_,
                          [self = shared_from_this(), keeps](error_code error, size_t) {
                              if (!error && keeps)
                                  return self->read();
                              error_code ignored;
                              self->stream_.socket().shutdown(tcp::socket::shutdown_send, ignored);
                          });
    }

    beast::tcp_stream stream_;
    Application& application_;
    std::shared_ptr<size_t> count_;
    beast::flat_buffer buffer_{1 << 16};
    std::optional<http::request_parser<http::string_body>> parser_;
    Request request_;
    http::response<http::string_body> answer_;
};

} // namespace

struct Server::Implementation {
    asio::io_context context{1};
    tcp::acceptor acceptor{context};
    asio::signal_set signals{context, SIGINT, SIGTERM};
    std::shared_ptr<size_t> connections = std::make_shared<size_t>(0);

    void accept(Application& application)
    {
        acceptor.async_accept([this, &application](error_code error, tcp::socket socket) {
            if (error == asio::error::operation_aborted)
                return;
            if (!error && *connections < kMostConnections) {
                error_code ignored;
                socket.set_option(tcp::no_delay(true), ignored);
                std::make_shared<Connection>(std::move(socket), application, connections)->read();
            }
            accept(application);
        });
    }
};

Server::Server(const std::string& address, uint16_t port)
    : implementation_(std::make_unique<Implementation>())
{
    const tcp::endpoint endpoint(asio::ip::make_address(address), port);
    tcp::acceptor& acceptor = implementation_->acceptor;
    acceptor.open(endpoint.protocol());
    acceptor.set_option(tcp::acceptor::reuse_address(true));
    acceptor.bind(endpoint);
    acceptor.listen();
}

Server::~Server() = default;

uint16_t Server::port() const
{
    return implementation_->acceptor.local_endpoint().port();
}

void Server::run(Application& application, std::function<void()> ends)
{
    implementation_->signals.async_wait([ends = std::move(ends)](error_code error, int) {
        if (!error)
            ends();
    });
    implementation_->accept(application);
    implementation_->context.run();
}

void Server::stop()
{
    implementation_->context.stop();
}

void Server::post(std::function<void()> work)
{
    asio::post(implementation_->context, std::move(work));
}

} // namespace studio
