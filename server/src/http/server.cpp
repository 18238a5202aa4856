#include "http/server.h"

#include <boost/asio.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/ssl.hpp>

#include <set>

#include "ops/log.h"
#include "ops/metrics.h"

namespace hintwick {
namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace ssl = asio::ssl;
using tcp = asio::ip::tcp;
using asio::awaitable;
using asio::use_awaitable;
constexpr auto kTuple = asio::as_tuple(use_awaitable);

namespace {

// A connection as the stop sees it: one between requests is ended at once.
struct Connection {
  beast::tcp_stream* transport = nullptr;
  bool idle = false;
};

Reply SafeHandle(Handler& handler, const Request& request) {
  try {
    return handler.Handle(request);
  } catch (const std::exception& e) {
    LogLine(std::string("handler failed: ") + e.what());
  } catch (...) {
    LogLine("handler failed");
  }
  return ErrorReply(500, "internal error");
}

}  // namespace

struct Server::Impl {
  Impl(ServerOptions o, Handler& h, Metrics& m)
      : options(std::move(o)),
        handler(h),
        metrics(m),
        store_pool(static_cast<std::size_t>(options.store_threads)),
        hash_pool(static_cast<std::size_t>(options.hash_threads)) {}

  ServerOptions options;
  Handler& handler;
  Metrics& metrics;
  asio::io_context io{1};
  tcp::acceptor acceptor{io};
  std::optional<ssl::context> tls;
  asio::thread_pool store_pool;
  asio::thread_pool hash_pool;
  int hashes_pending = 0;  // touched on the I/O thread only
  std::set<Connection*> connections;
  bool stopping = false;
  asio::steady_timer drain{io};
  std::optional<asio::signal_set> signals;

  void BeginStop();
  void Forget(Connection* connection);
  awaitable<void> Accept();
  awaitable<Reply> Dispatch(const RouteInfo& route, const Request& request);
  template <class Stream>
  awaitable<void> Serve(Stream& stream, Connection& connection, const std::string& peer);
  template <class Stream>
  awaitable<bool> Send(Stream& stream, Reply& reply, const WireRequest* wire, bool keep);
  awaitable<void> ServePlain(tcp::socket socket, std::string peer);
  awaitable<void> ServeTls(tcp::socket socket, std::string peer);
};

void Server::Impl::BeginStop() {
  if (stopping) return;
  stopping = true;
  boost::system::error_code ignored;
  acceptor.close(ignored);
  if (signals) signals->cancel(ignored);
  for (Connection* connection : connections)
    if (connection->idle) connection->transport->cancel();
  if (connections.empty()) return;
  LogLine("stopping: waiting for " + std::to_string(connections.size()) + " connection(s)");
  drain.expires_after(options.drain_timeout);
  drain.async_wait([this](boost::system::error_code ec) {
    if (!ec) io.stop();
  });
}

void Server::Impl::Forget(Connection* connection) {
  connections.erase(connection);
  metrics.ConnectionClosed();
  if (stopping && connections.empty()) drain.cancel();
}

awaitable<Reply> Server::Impl::Dispatch(const RouteInfo& route, const Request& request) {
  if (route.lane == Lane::kInline) co_return SafeHandle(handler, request);
  bool hashing = route.lane == Lane::kHash;
  // Each hash holds its Argon2id memory; a burst waits in a bounded queue, and beyond it the
  // client is asked to come back rather than the service growing without bound.
  if (hashing && hashes_pending >= options.hash_threads + options.hash_queue) {
    Reply busy = ErrorReply(503, "the service is busy; try again shortly");
    busy.retry_after = 1;
    co_return busy;
  }
  if (hashing) ++hashes_pending;
  auto& pool = hashing ? hash_pool : store_pool;
  auto [error, reply] = co_await asio::co_spawn(
      pool, [&]() -> awaitable<Reply> { co_return SafeHandle(handler, request); }, kTuple);
  if (hashing) --hashes_pending;
  if (error) co_return ErrorReply(500, "internal error");
  co_return reply;
}

template <class Stream>
awaitable<bool> Server::Impl::Send(Stream& stream, Reply& reply, const WireRequest* wire,
                                   bool keep) {
  auto fill = [&](auto& response) {
    response.version(wire ? wire->version() : 11);
    response.result(static_cast<unsigned>(reply.status));
    response.set(http::field::content_type, reply.content_type);
    response.set(http::field::cache_control, "no-store");
    if (reply.retry_after) response.set(http::field::retry_after, std::to_string(*reply.retry_after));
    response.keep_alive(keep);
  };
  beast::get_lowest_layer(stream).expires_after(options.read_timeout);
  if (!reply.file.empty()) {
    http::response<http::file_body> response;
    boost::system::error_code ec;
    response.body().open(reply.file.c_str(), beast::file_mode::scan, ec);
    if (!ec) {
      fill(response);
      response.prepare_payload();
      auto [write_error, n] = co_await http::async_write(stream, response, kTuple);
      co_return !write_error;
    }
    reply = ErrorReply(404, "no such file");
  }
  http::response<http::string_body> response;
  fill(response);
  response.body() = reply.body;
  response.prepare_payload();
  auto [write_error, n] = co_await http::async_write(stream, response, kTuple);
  co_return !write_error;
}

template <class Stream>
awaitable<void> Server::Impl::Serve(Stream& stream, Connection& connection,
                                    const std::string& peer) {
  beast::flat_buffer buffer;
  auto& transport = beast::get_lowest_layer(stream);
  bool secure = tls.has_value();
  for (;;) {
    // Between requests the connection only waits; once a byte arrives the whole request
    // must come within the read time-out, so a client that drips bytes is cut.
    if (buffer.size() == 0) {
      connection.idle = true;
      if (stopping) co_return;
      transport.expires_after(options.idle_timeout);
      auto [ec, n] = co_await stream.async_read_some(buffer.prepare(4096), kTuple);
      connection.idle = false;
      if (ec) co_return;
      buffer.commit(n);
    }
    WireParser parser;
    ApplyLimits(parser, options.limits);
    transport.expires_after(options.read_timeout);
    auto [ec, n] = co_await http::async_read(stream, buffer, parser, kTuple);
    auto start = std::chrono::steady_clock::now();
    Reply reply;
    Request request;
    RouteInfo route{Lane::kInline, "-"};
    bool keep = false;
    if (ec) {
      auto refusal = ReadFailureReply(ec);
      if (!refusal) co_return;
      reply = std::move(*refusal);
    } else {
      request = ToRequest(parser.get(), peer, secure, options.trust_forwarded_for);
      route = handler.Classify(request);
      reply = co_await Dispatch(route, request);
      keep = parser.get().keep_alive() && !stopping;
    }
    bool sent = co_await Send(stream, reply, ec ? nullptr : &parser.get(), keep);
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    metrics.Observe(route.name, ec ? "-" : request.method, reply.status, seconds);
    LogRequest({peer, ec ? "-" : request.method, ec ? "-" : request.path, reply.status,
                seconds, reply.body.size()});
    if (!sent || !keep) co_return;
  }
}

awaitable<void> Server::Impl::ServePlain(tcp::socket socket, std::string peer) {
  beast::tcp_stream stream(std::move(socket));
  Connection connection{&stream};
  connections.insert(&connection);
  co_await Serve(stream, connection, peer);
  boost::system::error_code ignored;
  stream.socket().shutdown(tcp::socket::shutdown_send, ignored);
  Forget(&connection);
}

awaitable<void> Server::Impl::ServeTls(tcp::socket socket, std::string peer) {
  beast::ssl_stream<beast::tcp_stream> stream(beast::tcp_stream(std::move(socket)), *tls);
  Connection connection{&beast::get_lowest_layer(stream)};
  connections.insert(&connection);
  beast::get_lowest_layer(stream).expires_after(options.read_timeout);
  auto [ec] = co_await stream.async_handshake(ssl::stream_base::server, kTuple);
  if (!ec) {
    co_await Serve(stream, connection, peer);
    beast::get_lowest_layer(stream).expires_after(std::chrono::seconds(2));
    co_await stream.async_shutdown(kTuple);
  }
  Forget(&connection);
}

awaitable<void> Server::Impl::Accept() {
  for (;;) {
    auto [ec, socket] = co_await acceptor.async_accept(kTuple);
    if (stopping) co_return;
    if (ec) {
      // Out of descriptors and the like: wait a moment rather than spin.
      LogLine("accept failed: " + ec.message());
      asio::steady_timer pause(io, std::chrono::milliseconds(100));
      co_await pause.async_wait(kTuple);
      continue;
    }
    boost::system::error_code peer_error;
    std::string peer = socket.remote_endpoint(peer_error).address().to_string();
    metrics.ConnectionOpened();
    auto serve = tls ? ServeTls(std::move(socket), peer) : ServePlain(std::move(socket), peer);
    asio::co_spawn(io, std::move(serve), [](std::exception_ptr failure) {
      if (failure) LogLine("a connection ended on an exception");
    });
  }
}

Server::Server(ServerOptions options, Handler& handler, Metrics& metrics)
    : impl_(std::make_unique<Impl>(std::move(options), handler, metrics)) {}

Server::~Server() {
  impl_->store_pool.join();
  impl_->hash_pool.join();
}

std::optional<std::string> Server::Bind() {
  auto& o = impl_->options;
  boost::system::error_code ec;
  if (!o.tls_cert.empty()) {
    auto& tls = impl_->tls.emplace(ssl::context::tls_server);
    tls.set_options(ssl::context::default_workarounds | ssl::context::no_sslv2 |
                    ssl::context::no_sslv3 | ssl::context::no_tlsv1 | ssl::context::no_tlsv1_1);
    tls.use_certificate_chain_file(o.tls_cert, ec);
    if (ec) return "cannot use the TLS certificate " + o.tls_cert + ": " + ec.message();
    tls.use_private_key_file(o.tls_key, ssl::context::pem, ec);
    if (ec) return "cannot use the TLS key " + o.tls_key + ": " + ec.message();
  }
  auto address = asio::ip::make_address(o.host, ec);
  if (ec) return "not an address: " + o.host;
  tcp::endpoint endpoint(address, o.port);
  auto& acceptor = impl_->acceptor;
  acceptor.open(endpoint.protocol(), ec);
  if (!ec) acceptor.set_option(asio::socket_base::reuse_address(true), ec);
  if (!ec) acceptor.bind(endpoint, ec);
  if (!ec) acceptor.listen(asio::socket_base::max_listen_connections, ec);
  if (ec) return "cannot listen on " + o.host + ":" + std::to_string(o.port) + ": " + ec.message();
  return std::nullopt;
}

std::uint16_t Server::Port() const {
  boost::system::error_code ec;
  return impl_->acceptor.local_endpoint(ec).port();
}

std::string Server::BaseUrl() const {
  std::string host = impl_->options.host;
  if (host.find(':') != std::string::npos) host = "[" + host + "]";
  return std::string(impl_->tls ? "https://" : "http://") + host + ":" + std::to_string(Port());
}

void Server::Run(bool signals) {
  Impl& s = *impl_;
  if (signals) {
    s.signals.emplace(s.io, SIGTERM, SIGINT);
    s.signals->async_wait([&s](boost::system::error_code ec, int) {
      if (!ec) s.BeginStop();
    });
  }
  asio::co_spawn(s.io, s.Accept(), [](std::exception_ptr failure) {
    if (failure) LogLine("the listener ended on an exception");
  });
  s.io.run();
}

void Server::Stop() {
  asio::post(impl_->io, [this] { impl_->BeginStop(); });
}

}  // namespace hintwick
