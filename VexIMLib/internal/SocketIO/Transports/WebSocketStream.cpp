#include "VexIMLib/internal/SocketIO/Transports/WebSocketStream.h"

#include <algorithm>
#include <array>
#include <optional>

#include <boost/asio/bind_executor.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/beast/websocket.hpp>

#include "VexIMLib/internal/Foundation/Text/UTF8.h"
#include "VexIMLib/internal/SocketIO/Protocol/BoundedAppend.h"
#include "VexIMLib/internal/SocketIO/Protocol/ConnectionError.h"
#include "VexIMLib/internal/SocketIO/Protocol/FrameScanner.h"
#include "VexIMLib/internal/SocketIO/Transports/HandshakeAnswer.h"
#include "VexIMLib/internal/SocketIO/Transports/MemoryLayer.h"

namespace vexim {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace websocket = beast::websocket;
using boost::system::error_code;

/// One buffer for all streams, because all are on the network thread. Compressed messages are read
/// into it one at a time.
std::vector<char>& scratch() {
    static thread_local std::vector<char> buffer;
    return buffer;
}
constexpr std::size_t kScratchKept = 256 * 1024;

// "HTTP/1.1 101 …"
constexpr std::size_t kStatusAt = 9;
constexpr std::size_t kStatusEnd = 12;
constexpr std::size_t kMaxHeadBytes = 64 * 1024;

/// The registered codes that may be sent (RFC 6455, section 7.4, and its registry), and those of
/// libraries and applications.
bool mayBeSent(unsigned closeCode) {
    return (closeCode >= 1000 && closeCode <= 1003) || (closeCode >= 1007 && closeCode <= 1014) ||
           (closeCode >= 3000 && closeCode <= 4999);
}

}  // namespace

struct WebSocketStream::Impl {
    Impl(const MemoryLayer::executor_type& executor, Options wanted)
        : options(wanted),
          stream(MemoryLayer(executor)),
          scanner(wanted.maxMessageBytes) {}

    enum class State : std::uint8_t { Handshaking, Open, Done };

    Options options;
    websocket::stream<MemoryLayer> stream;
    FrameScanner scanner;
    State state = State::Handshaking;
    std::string pending;       // received, not yet given to the stream
    std::size_t released = 0;  // of `pending`, while handshaking
    std::size_t awaited = 0;   // length of the frame at its front, once that is known
    HeaderList asked;
    HandshakeResponse response;
    std::optional<RefusalReader> refusal;  // an answer other than 101
    HandshakeHandler handler;
    // The unfinished message: the fragments' payloads, or the whole fragments if they are
    // compressed.
    bool isTextMessage = false;
    bool isCompressedMessage = false;
    bool isPaused = false;
    std::string fragments;
    std::string fault;

    void offerHead(std::string_view bytes);
    void readRefusal(std::size_t added);
    void didHandshake(error_code error);
    Status consume(std::string_view& bytes, Listener& listener);
    Status didReceiveControl(FrameScanner::Opcode opcode, std::string_view payload,
                             Listener& listener);
    Status didReceiveClose(std::string_view payload);
    Status deliver(std::string_view message, Listener& listener);
    Status inflateAndDeliver(std::string_view frames, Listener& listener);
    Status fail(Status status, websocket::close_code code, std::string why);
    template <class Buffers>
    void write(bool isText, const Buffers& buffers);
    MemoryLayer& layer() { return stream.next_layer(); }
};

WebSocketStream::WebSocketStream(asio::io_context::executor_type executor, Options options)
    : impl_(std::make_shared<Impl>(executor, options)) {
    auto& stream = impl_->stream;
    stream.auto_fragment(false);
    stream.read_message_max(options.maxMessageBytes);
    if (options.offerDeflate) {
        websocket::permessage_deflate deflate;
        deflate.client_enable = true;
        stream.set_option(deflate);
    } else {
        // Beast masks a long message in several steps, in a buffer. With compression each step
        // would become a frame.
        stream.write_buffer_bytes(512);
    }
}

WebSocketStream::~WebSocketStream() {
    impl_->handler = nullptr;
    impl_->layer().end();  // the handshake ends and releases what it shares
}

void WebSocketStream::startHandshake(std::string_view host, std::string_view target,
                                     const HeaderList& headers, HandshakeHandler handler) {
    impl_->handler = std::move(handler);
    impl_->asked = headers;
    impl_->stream.set_option(
        websocket::stream_base::decorator([headers](websocket::request_type& request) {
            for (const auto& [name, value] : headers) request.set(name, value);
        }));
    impl_->stream.async_handshake(
        impl_->response, beast::string_view(host.data(), host.size()),
        beast::string_view(target.data(), target.size()),
        asio::bind_executor(impl_->layer().get_executor(),
                            [impl = impl_](error_code error) { impl->didHandshake(error); }));
}

void WebSocketStream::endOfInput() {
    if (impl_->refusal) impl_->refusal->endOfInput();
    impl_->layer().end();
}

/// During the handshake Beast may read only the header of a 101 answer: it would keep any bytes
/// after that.
void WebSocketStream::Impl::offerHead(std::string_view bytes) {
    if (refusal && layer().hasEnded()) return;
    pending += bytes;
    if (refusal) return readRefusal(bytes.size());
    if (pending.size() >= kStatusEnd &&
        pending.compare(kStatusAt, kStatusEnd - kStatusAt, "101") != 0) {
        refusal.emplace();
        return readRefusal(pending.size());
    }
    const auto headEnd = pending.find("\r\n\r\n");
    const std::size_t consumed = released - layer().window().size();
    if (headEnd != std::string::npos) {
        released = headEnd + 4;  // not what came after it
    } else if (pending.size() > kMaxHeadBytes) {
        released = pending.size();
    }
    layer().open(std::string_view(pending).substr(consumed, released - consumed));
}

void WebSocketStream::Impl::readRefusal(std::size_t added) {
    if (!refusal->read(pending, added)) return;
    pending.clear();
    layer().end();  // ends Beast's handshake and ours
}

void WebSocketStream::Impl::didHandshake(error_code error) {
    HandshakeResult result;
    const bool wasRefused = refusal && refusal->hasHead();
    if (wasRefused) response.base() = refusal->head();
    // A WebSocket error from Beast means that it has read the whole answer.
    const bool wasAnswered =
        !error ||
        error.category() == make_error_code(websocket::error::upgrade_declined).category();
    result.httpStatus = wasAnswered || wasRefused ? static_cast<int>(response.result_int()) : 0;
    for (auto range = response.equal_range(beast::http::field::set_cookie);
         range.first != range.second; ++range.first) {
        result.cookies.emplace_back(range.first->value());
    }
    const char* const disagreement =
        error ? nullptr : faultOfAgreement(response, asked, options.offerDeflate);
    if (wasRefused) {
        result.body = refusal->body();
        result.reason =
            "The WebSocket handshake was answered with " + std::to_string(result.httpStatus) + ".";
    } else if (refusal) {
        result.reason = "The WebSocket handshake failed: the answer is not HTTP.";
    } else if (error == beast::http::error::end_of_stream ||
               error == beast::http::error::partial_message) {
        result.isCutOff = true;
        result.reason = kCutOff;
    } else if (error) {
        result.reason = "The WebSocket handshake failed: " + error.message() + ".";
    } else if (disagreement) {
        result.reason =
            std::string("The WebSocket handshake failed: the server chose ") + disagreement + ".";
    } else {
        result.accepted = true;
        if (response.count(beast::http::field::sec_websocket_extensions) > 0)
            scanner.allowCompression();
    }
    state = result.accepted ? State::Open : State::Done;
    pending.erase(0, result.accepted ? released : pending.size());
    response = {};
    refusal.reset();
    asked.clear();
    const auto then = std::exchange(handler, nullptr);
    if (then) then(std::move(result));
}

/// Sends the close frame. The owner of the stream ends the connection.
WebSocketStream::Status WebSocketStream::Impl::fail(Status status, websocket::close_code code,
                                                    std::string why) {
    state = State::Done;
    fault = std::move(why);
    error_code ignored;
    stream.close(code, ignored);
    return status;
}

WebSocketStream::Status WebSocketStream::receive(std::string_view bytes, Listener& listener) {
    Impl& impl = *impl_;
    switch (impl.state) {
        case Impl::State::Handshaking: impl.offerHead(bytes); return Status::Open;
        case Impl::State::Done: return Status::Open;
        case Impl::State::Open: break;
    }
    // The usual case: whole frames and nothing left over. Read them in place.
    const auto kept = impl_;
    impl.isPaused = false;
    if (impl.pending.empty()) {
        const Status status = impl.consume(bytes, listener);
        if (status == Status::Open) impl.pending = bytes;
        return status;
    }
    appendBounded(impl.pending, bytes, impl.awaited);
    std::string work = std::exchange(impl.pending, {});
    std::string_view rest = work;
    const Status status = impl.consume(rest, listener);
    if (rest.empty()) return status;  // releases the memory of a long frame
    work.erase(0, work.size() - rest.size());
    impl.pending = std::move(work);
    return status;
}

WebSocketStream::Status WebSocketStream::Impl::consume(std::string_view& bytes,
                                                       Listener& listener) {
    using Verdict = FrameScanner::Verdict;
    while (!bytes.empty() && state == State::Open && !isPaused) {
        const auto frame = scanner.scan(bytes);
        switch (frame.verdict) {
            case Verdict::Incomplete: awaited = frame.bytes; return Status::Open;
            case Verdict::Malformed:
                return fail(Status::Malformed, websocket::close_code::protocol_error, frame.why);
            case Verdict::TooLarge:
                return fail(Status::TooLarge, websocket::close_code::too_big,
                            "a message that is too long");
            case Verdict::Whole: break;
        }
        const auto raw = bytes.substr(0, frame.bytes);
        const auto payload = raw.substr(frame.headBytes);
        bytes.remove_prefix(frame.bytes);
        Status status = Status::Open;
        if (frame.isControl()) {
            status = didReceiveControl(frame.opcode, payload, listener);
        } else {
            const bool isFirst = frame.opcode != FrameScanner::Opcode::Continuation;
            if (isFirst) {
                isTextMessage = frame.opcode == FrameScanner::Opcode::Text;
                isCompressedMessage = frame.isCompressed;
            }
            const auto part = isCompressedMessage ? raw : payload;
            if (!isFirst || !frame.isFinal) appendBounded(fragments, part, options.maxMessageBytes);
            if (!frame.isFinal) continue;
            const std::string joined = std::exchange(fragments, {});
            status = isCompressedMessage ? inflateAndDeliver(isFirst ? part : joined, listener)
                                         : deliver(isFirst ? part : joined, listener);
        }
        if (status != Status::Open) return status;
    }
    return Status::Open;
}

/// Answers at once, even between the fragments of a message.
WebSocketStream::Status WebSocketStream::Impl::didReceiveControl(FrameScanner::Opcode opcode,
                                                                 std::string_view payload,
                                                                 Listener& listener) {
    if (opcode == FrameScanner::Opcode::Close) return didReceiveClose(payload);
    if (opcode == FrameScanner::Opcode::Pong) {
        listener.didReceivePong();
    } else {
        error_code ignored;
        stream.pong(websocket::ping_data(payload.data(), payload.size()), ignored);
        listener.didReceivePing();
    }
    return Status::Open;
}

WebSocketStream::Status WebSocketStream::Impl::didReceiveClose(std::string_view payload) {
    using Code = websocket::close_code;
    if (payload.empty()) return fail(Status::ClosedByPeer, Code::normal, "closed by the server");
    if (payload.size() == 1)
        return fail(Status::Malformed, Code::protocol_error, "an incomplete close code");
    const unsigned code =
        static_cast<std::uint8_t>(payload[0]) * 256U + static_cast<std::uint8_t>(payload[1]);
    if (!mayBeSent(code))
        return fail(Status::Malformed, Code::protocol_error, "a close code that may not be sent");
    if (!detail::isValidUTF8(payload.substr(2))) {
        return fail(Status::Malformed, Code::bad_payload, "a close reason that is not UTF-8");
    }
    return fail(Status::ClosedByPeer, static_cast<Code>(code),
                "closed by the server, code " + std::to_string(code));
}

WebSocketStream::Status WebSocketStream::Impl::deliver(std::string_view message,
                                                       Listener& listener) {
    if (isTextMessage && !detail::isValidUTF8(message)) {
        return fail(Status::Malformed, websocket::close_code::bad_payload,
                    "a text that is not UTF-8");
    }
    const auto next = listener.didReceiveMessage(isTextMessage, message);
    if (next == Listener::Next::Stop) state = State::Done;
    isPaused = next == Listener::Next::Pause;
    return Status::Open;
}

WebSocketStream::Status WebSocketStream::Impl::inflateAndDeliver(std::string_view frames,
                                                                 Listener& listener) {
    layer().open(frames);
    auto& buffer = scratch();
    if (buffer.size() < frames.size() + 1)
        buffer.resize(std::max<std::size_t>(frames.size() + 1, 16 * 1024));
    std::size_t filled = 0;
    do {
        error_code error;
        if (filled == buffer.size())
            buffer.resize(std::min(buffer.size() * 2, options.maxMessageBytes + 1));
        filled +=
            stream.read_some(asio::buffer(buffer.data() + filled, buffer.size() - filled), error);
        if (!error) continue;
        state = State::Done;
        fault = error.message();
        return error == websocket::error::message_too_big ? Status::TooLarge : Status::Malformed;
    } while (!stream.is_message_done());
    const Status status = deliver({buffer.data(), filled}, listener);
    if (buffer.size() > kScratchKept) std::vector<char>().swap(buffer);
    return status;
}

const std::string& WebSocketStream::fault() const noexcept { return impl_->fault; }

template <class Buffers>
void WebSocketStream::Impl::write(bool isText, const Buffers& buffers) {
    if (state != State::Open) return;
    stream.text(isText);
    error_code error;
    stream.write(buffers, error);
}

void WebSocketStream::writeText(std::string_view text) {
    impl_->write(true, asio::buffer(text.data(), text.size()));
}

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
    // Beast's close would wait for the server's answer. Send only the frame; the owner limits the
    // wait.
    error_code error;
    impl_->stream.close(websocket::close_code::normal, error);
}

std::string& WebSocketStream::output() noexcept { return impl_->layer().output(); }

std::size_t WebSocketStream::outputBytes() const noexcept { return impl_->layer().output().size(); }

}  // namespace vexim
