#include "VexIMLib/internal/SocketIO/WebSocketStream.h"

#include <algorithm>
#include <array>
#include <optional>

#include <boost/asio/async_result.hpp>
#include <boost/asio/bind_executor.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/asio/post.hpp>
#include <boost/beast/core/bind_handler.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/websocket.hpp>

#include "VexIMLib/internal/SocketIO/FrameScanner.h"

namespace vexim {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace websocket = beast::websocket;
using boost::system::error_code;

/// What the Beast stream takes for its socket. It reads no further than a window that we open, so that no byte behind a whole
/// message is swallowed, and writes into a string that is sent in one piece.
class MemoryLayer {
public:
    using executor_type = asio::any_io_executor;

    explicit MemoryLayer(executor_type executor) : executor_(std::move(executor)) {}
    executor_type get_executor() const noexcept { return executor_; }

    /// Lets `bytes`, which must outlive the reading, be read.
    void open(std::string_view bytes) {
        window_ = bytes;
        resume();
    }
    std::string_view window() const noexcept { return window_; }
    void end() {
        ended_ = true;
        resume();
    }
    std::string& output() noexcept { return output_; }

    template <class Buffers>
    std::size_t read_some(const Buffers& buffers, error_code& error) {
        if (window_.empty() && asio::buffer_size(buffers) > 0) {
            error = ended_ ? error_code(asio::error::eof) : error_code(asio::error::would_block);
            return 0;
        }
        error = {};
        const std::size_t count = asio::buffer_copy(buffers, asio::buffer(window_.data(), window_.size()));
        window_.remove_prefix(count);
        return count;
    }
    template <class Buffers>
    std::size_t read_some(const Buffers& buffers) {
        error_code error;
        const std::size_t count = read_some(buffers, error);
        if (error) throw boost::system::system_error(error);
        return count;
    }
    template <class Buffers>
    std::size_t write_some(const Buffers& buffers, error_code& error) {
        error = {};
        std::size_t count = 0;
        for (auto it = asio::buffer_sequence_begin(buffers); it != asio::buffer_sequence_end(buffers); ++it) {
            const asio::const_buffer buffer = *it;
            output_.append(static_cast<const char*>(buffer.data()), buffer.size());
            count += buffer.size();
        }
        return count;
    }
    template <class Buffers>
    std::size_t write_some(const Buffers& buffers) {
        error_code error;
        return write_some(buffers, error);
    }

    template <class Buffers, class Token>
    auto async_read_some(const Buffers& buffers, Token&& token) {
        return asio::async_initiate<Token, void(error_code, std::size_t)>(
            [this](auto handler, const Buffers& into) {
                using Handler = decltype(handler);
                pending_ = std::make_unique<PendingRead<Buffers, Handler>>(*this, into, std::move(handler));
                resume();
            },
            token, buffers);
    }
    template <class Buffers, class Token>
    auto async_write_some(const Buffers& buffers, Token&& token) {
        return asio::async_initiate<Token, void(error_code, std::size_t)>(
            [this](auto handler, const Buffers& from) {
                error_code error;
                const std::size_t count = write_some(from, error);
                asio::post(executor_, beast::bind_front_handler(std::move(handler), error, count));
            },
            token, buffers);
    }

    // What Beast calls when it ends the connection; the bytes' real carrier is closed by its owner.
    friend void teardown(beast::role_type, MemoryLayer&, error_code& error) { error = {}; }
    template <class Handler>
    friend void async_teardown(beast::role_type, MemoryLayer& layer, Handler&& handler) {
        asio::post(layer.executor_, beast::bind_front_handler(std::forward<Handler>(handler), error_code{}));
    }
    friend void beast_close_socket(MemoryLayer&) {}

private:
    struct Pending {
        virtual ~Pending() = default;
        virtual void complete() = 0;
    };
    template <class Buffers, class Handler>
    struct PendingRead final : Pending {
        PendingRead(MemoryLayer& owner, Buffers into, Handler then) : layer(owner), buffers(into), handler(std::move(then)) {}
        void complete() override {
            error_code error;
            const std::size_t count = layer.read_some(buffers, error);
            asio::post(layer.executor_, beast::bind_front_handler(std::move(handler), error, count));
        }
        MemoryLayer& layer;
        Buffers buffers;
        Handler handler;
    };

    void resume() {
        if (!pending_ || (window_.empty() && !ended_)) return;
        const auto pending = std::move(pending_);
        pending->complete();
    }

    executor_type executor_;
    std::string_view window_;
    std::string output_;
    std::unique_ptr<Pending> pending_;
    bool ended_ = false;
};

// An empty text message, whole. Beast reads on behind a control frame until it has a message, and running dry is an error to
// it: this gives it one to stop at.
constexpr std::string_view kEmptyMessage{"\x81\x00", 2};

/// One buffer for all streams, since all live on the network thread; messages are read into it one at a time.
std::vector<char>& scratch() {
    static thread_local std::vector<char> buffer;
    return buffer;
}
constexpr std::size_t kScratchKept = 256 * 1024;

// "HTTP/1.1 101 …"
constexpr std::size_t kStatusAt = 9;
constexpr std::size_t kStatusEnd = 12;
constexpr std::size_t kMaxHeadBytes = 64 * 1024;

}  // namespace

struct WebSocketStream::Impl {
    Impl(const asio::any_io_executor& executor, Options wanted)
        : options(wanted),
          stream(MemoryLayer(executor)),
          scanner(wanted.maxMessageBytes) {}

    enum class State : std::uint8_t { Handshaking, Open, Done };

    using Response = websocket::response_type;

    Options options;
    websocket::stream<MemoryLayer> stream;
    FrameScanner scanner;
    State state = State::Handshaking;
    std::string pending;       // received, not yet given to the stream
    std::size_t released = 0;  // of `pending`, while handshaking
    std::string fault;
    Response response;
    HandshakeHandler handler;

    void offerHead(std::string_view bytes);
    void didHandshake(error_code error);
    Status consume(std::string_view& bytes, Listener& listener);
    Status fail(error_code error);
    template <class Buffers>
    void write(bool isText, const Buffers& buffers);
    MemoryLayer& layer() { return stream.next_layer(); }
};

WebSocketStream::WebSocketStream(const asio::any_io_executor& executor, Options options)
    : impl_(std::make_shared<Impl>(executor, options)) {
    auto& stream = impl_->stream;
    stream.auto_fragment(false);
    stream.read_message_max(options.maxMessageBytes);
    if (options.offerDeflate) {
        websocket::permessage_deflate deflate;
        deflate.client_enable = true;
        stream.set_option(deflate);
    }
}

WebSocketStream::~WebSocketStream() {
    impl_->handler = nullptr;
    impl_->layer().end();  // the handshake comes to its end, and with it what it shares
}

void WebSocketStream::startHandshake(std::string_view host, std::string_view target, const HeaderList& headers,
                                     HandshakeHandler handler) {
    impl_->handler = std::move(handler);
    impl_->stream.set_option(websocket::stream_base::decorator([headers](websocket::request_type& request) {
        for (const auto& [name, value] : headers) request.set(name, value);
    }));
    impl_->stream.async_handshake(
        impl_->response, beast::string_view(host.data(), host.size()), beast::string_view(target.data(), target.size()),
        asio::bind_executor(impl_->layer().get_executor(), [impl = impl_](error_code error) { impl->didHandshake(error); }));
}

void WebSocketStream::endOfInput() { impl_->layer().end(); }

/// During the handshake Beast may read the head of a 101 answer and not a byte more: it would keep what follows to itself.
void WebSocketStream::Impl::offerHead(std::string_view bytes) {
    const std::size_t consumed = released - layer().window().size();
    pending += bytes;
    const auto headEnd = pending.find("\r\n\r\n");
    const bool isSwitching = pending.size() < kStatusEnd || pending.compare(kStatusAt, kStatusEnd - kStatusAt, "101") == 0;
    if (!isSwitching || pending.size() > kMaxHeadBytes) {
        released = pending.size();
    } else if (headEnd != std::string::npos) {
        released = headEnd + 4;
    }
    layer().open(std::string_view(pending).substr(consumed, released - consumed));
}

void WebSocketStream::Impl::didHandshake(error_code error) {
    HandshakeResult result;
    // Only Beast's own objections follow a whole answer.
    const bool wasAnswered = !error || error.category() == make_error_code(websocket::error::upgrade_declined).category();
    result.httpStatus = wasAnswered ? static_cast<int>(response.result_int()) : 0;
    for (auto range = response.equal_range(beast::http::field::set_cookie); range.first != range.second; ++range.first) {
        result.cookies.emplace_back(range.first->value());
    }
    if (error) {
        result.body = std::move(response.body());
        result.reason = result.httpStatus != 0 && result.httpStatus != 101
                            ? "The WebSocket handshake was answered with " + std::to_string(result.httpStatus) + "."
                            : "The WebSocket handshake failed: " + error.message();
        state = State::Done;
    } else {
        result.accepted = true;
        state = State::Open;
        pending.erase(0, released);
        response = {};
    }
    const auto then = std::exchange(handler, nullptr);
    if (then) then(std::move(result));
}

WebSocketStream::Status WebSocketStream::Impl::fail(error_code error) {
    state = State::Done;
    if (error == websocket::error::closed) {
        const auto& reason = stream.reason();
        fault = "closed by the server, code " + std::to_string(reason.code);
        return Status::ClosedByPeer;
    }
    fault = error.message();
    const bool tooLarge = error == websocket::error::message_too_big || error == websocket::error::buffer_overflow;
    return tooLarge ? Status::TooLarge : Status::Malformed;
}

WebSocketStream::Status WebSocketStream::receive(std::string_view bytes, Listener& listener) {
    Impl& impl = *impl_;
    switch (impl.state) {
        case Impl::State::Handshaking: impl.offerHead(bytes); return Status::Open;
        case Impl::State::Done: return Status::Open;
        case Impl::State::Open: break;
    }
    // The common case: whole messages and nothing left over. They are read where they lie.
    const auto kept = impl_;
    if (impl.pending.empty()) {
        const Status status = impl.consume(bytes, listener);
        if (status == Status::Open) impl.pending = bytes;
        return status;
    }
    impl.pending += bytes;
    std::string work = std::exchange(impl.pending, {});
    std::string_view rest = work;
    const Status status = impl.consume(rest, listener);
    if (rest.empty()) return status;  // what a long message took is given back
    work.erase(0, work.size() - rest.size());
    impl.pending = std::move(work);
    return status;
}

WebSocketStream::Status WebSocketStream::Impl::consume(std::string_view& bytes, Listener& listener) {
    stream.control_callback([&listener](websocket::frame_type kind, beast::string_view) {
        if (kind == websocket::frame_type::pong) listener.didReceivePong();
    });
    while (!bytes.empty()) {
        const auto [verdict, length] = scanner.scan(bytes);
        if (verdict == FrameScanner::Verdict::Incomplete) break;
        if (verdict == FrameScanner::Verdict::TooLarge) {
            error_code ignored;
            stream.close(websocket::close_code::too_big, ignored);
            state = State::Done;
            fault = "a message over the limit";
            return Status::TooLarge;
        }
        const bool isControl = verdict == FrameScanner::Verdict::Control;
        std::string controlAndStop;
        if (isControl) controlAndStop.assign(bytes.substr(0, length)) += kEmptyMessage;
        layer().open(isControl ? std::string_view(controlAndStop) : bytes.substr(0, length));

        auto& buffer = scratch();
        if (buffer.size() < length + 1) buffer.resize(std::max<std::size_t>(length + 1, 16 * 1024));
        std::size_t filled = 0;
        do {
            error_code error;
            if (filled == buffer.size()) buffer.resize(buffer.size() * 2);
            filled += stream.read_some(asio::buffer(buffer.data() + filled, buffer.size() - filled), error);
            if (error) return fail(error);
        } while (!stream.is_message_done());
        bytes.remove_prefix(length);
        if (!isControl) {
            const bool goOn = listener.didReceiveMessage(stream.got_text(), {buffer.data(), filled});
            if (!goOn || state != State::Open) return Status::Open;
        }
        if (buffer.size() > kScratchKept) std::vector<char>().swap(buffer);
    }
    return Status::Open;
}

const std::string& WebSocketStream::fault() const noexcept { return impl_->fault; }

template <class Buffers>
void WebSocketStream::Impl::write(bool isText, const Buffers& buffers) {
    if (state != State::Open) return;
    stream.text(isText);
    error_code error;
    stream.write(buffers, error);
}

void WebSocketStream::writeText(std::string_view text) { impl_->write(true, asio::buffer(text.data(), text.size())); }

void WebSocketStream::writeBinary(std::string_view prefix, std::string_view bytes) {
    const std::array<asio::const_buffer, 2> parts{asio::buffer(prefix.data(), prefix.size()),
                                                  asio::buffer(bytes.data(), bytes.size())};
    impl_->write(false, parts);
}

void WebSocketStream::writePing() {
    if (impl_->state != Impl::State::Open) return;
    error_code error;
    impl_->stream.ping({}, error);
}

void WebSocketStream::writeClose() {
    if (impl_->state != Impl::State::Open) return;
    impl_->state = Impl::State::Done;
    // Beast's close would wait for the peer's answer; the frame alone is wanted, and its owner bounds the waiting.
    error_code error;
    impl_->stream.close(websocket::close_code::normal, error);
}

std::string& WebSocketStream::output() noexcept { return impl_->layer().output(); }

std::size_t WebSocketStream::outputBytes() const noexcept { return impl_->layer().output().size(); }

}  // namespace vexim
