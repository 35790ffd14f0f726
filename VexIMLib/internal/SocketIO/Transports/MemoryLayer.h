#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include <boost/asio/async_result.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/beast/core/bind_handler.hpp>
#include <boost/beast/core/role.hpp>
#include <boost/system/system_error.hpp>

namespace vexim {

/// The Beast stream uses this as its socket. It reads only from a window that we open, so that no
/// byte after a whole message is consumed. It writes into a string, which is sent in one piece.
class MemoryLayer {
public:
    // Not any_io_executor, which costs a handshake thousands of instructions.
    using executor_type = boost::asio::io_context::executor_type;

    explicit MemoryLayer(executor_type executor) : executor_(std::move(executor)) {}
    executor_type get_executor() const noexcept { return executor_; }

    /// Opens `bytes` for reading. They must stay valid until they are read.
    void open(std::string_view bytes) {
        window_ = bytes;
        resume();
    }
    std::string_view window() const noexcept { return window_; }
    void end() {
        ended_ = true;
        resume();
    }
    bool hasEnded() const noexcept { return ended_; }
    std::string& output() noexcept { return output_; }

    template <class Buffers>
    std::size_t read_some(const Buffers& buffers, boost::system::error_code& error) {
        if (window_.empty() && boost::asio::buffer_size(buffers) > 0) {
            error = ended_ ? boost::system::error_code(boost::asio::error::eof)
                           : boost::system::error_code(boost::asio::error::would_block);
            return 0;
        }
        error = {};
        const std::size_t count =
            boost::asio::buffer_copy(buffers, boost::asio::buffer(window_.data(), window_.size()));
        window_.remove_prefix(count);
        return count;
    }
    template <class Buffers>
    std::size_t read_some(const Buffers& buffers) {
        boost::system::error_code error;
        const std::size_t count = read_some(buffers, error);
        if (error) throw boost::system::system_error(error);
        return count;
    }
    template <class Buffers>
    std::size_t write_some(const Buffers& buffers, boost::system::error_code& error) {
        error = {};
        std::size_t count = 0;
        for (auto it = boost::asio::buffer_sequence_begin(buffers);
             it != boost::asio::buffer_sequence_end(buffers); ++it) {
            const boost::asio::const_buffer buffer = *it;
            output_.append(static_cast<const char*>(buffer.data()), buffer.size());
            count += buffer.size();
        }
        return count;
    }
    template <class Buffers>
    std::size_t write_some(const Buffers& buffers) {
        boost::system::error_code error;
        return write_some(buffers, error);
    }

    template <class Buffers, class Token>
    auto async_read_some(const Buffers& buffers, Token&& token) {
        return boost::asio::async_initiate<Token, void(boost::system::error_code, std::size_t)>(
            [this](auto handler, const Buffers& into) {
                using Handler = decltype(handler);
                pending_ = std::make_unique<PendingRead<Buffers, Handler>>(*this, into,
                                                                           std::move(handler));
                resume();
            },
            token, buffers);
    }
    template <class Buffers, class Token>
    auto async_write_some(const Buffers& buffers, Token&& token) {
        return boost::asio::async_initiate<Token, void(boost::system::error_code, std::size_t)>(
            [this](auto handler, const Buffers& from) {
                boost::system::error_code error;
                const std::size_t count = write_some(from, error);
                boost::asio::post(
                    executor_, boost::beast::bind_front_handler(std::move(handler), error, count));
            },
            token, buffers);
    }

    // Beast calls this to end the connection. The owner closes the real socket.
    friend void teardown(boost::beast::role_type, MemoryLayer&, boost::system::error_code& error) {
        error = {};
    }
    template <class Handler>
    friend void async_teardown(boost::beast::role_type, MemoryLayer& layer, Handler&& handler) {
        boost::asio::post(layer.executor_,
                          boost::beast::bind_front_handler(std::forward<Handler>(handler),
                                                           boost::system::error_code{}));
    }
    friend void beast_close_socket(MemoryLayer&) {}

private:
    struct Pending {
        virtual ~Pending() = default;
        virtual void complete() = 0;
    };
    template <class Buffers, class Handler>
    struct PendingRead final : Pending {
        PendingRead(MemoryLayer& owner, Buffers into, Handler then)
            : layer(owner),
              buffers(into),
              handler(std::move(then)) {}
        void complete() override {
            boost::system::error_code error;
            const std::size_t count = layer.read_some(buffers, error);
            boost::asio::post(layer.executor_,
                              boost::beast::bind_front_handler(std::move(handler), error, count));
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

}  // namespace vexim
