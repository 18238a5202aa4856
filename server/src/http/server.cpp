#include "http/server.h"

#include <boost/asio.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/ssl.hpp>

#include <list>
#include <set>

#include "http/streamed_reply.h"
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

// One request and what became of it, for the reply, the metrics and the log.
struct Exchange {
  Request request;
  RouteInfo route{Lane::kInline, "-"};
  Reply reply;
  unsigned version = 11;
  bool keep_alive = false;
  std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
};

}  // namespace

struct Server::Impl {
  Impl(ServerOptions o, Handler& h, Metrics& m)
      : options(std::move(o)),
        handler(h),
        metrics(m),
        store_pool(static_cast<std::size_t>(options.store_threads)),
        hash_pool(static_cast<std::size_t>(options.hash_threads)) {}

  // A connection as the stop sees it: one that waits between requests is ended at once.
  struct Connection {
    Connection(Impl& impl, beast::tcp_stream& stream) : impl(impl), transport(stream) {
      impl.connections.insert(this);
      impl.metrics.ConnectionOpened();
    }
    ~Connection() {
      impl.connections.erase(this);
      impl.metrics.ConnectionClosed();
      if (impl.stopping && impl.connections.empty()) impl.drain.cancel();
    }
    Impl& impl;
    beast::tcp_stream& transport;
    bool idle = false;
  };

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
  std::list<asio::steady_timer> chores;

  void BeginStop();
  awaitable<void> Accept();
  awaitable<Reply> Dispatch(const RouteInfo& route, const Request& request);
  template <class Stream>
  awaitable<bool> AwaitRequest(Stream& stream, beast::flat_buffer& buffer, Connection& connection);
  template <class Stream>
  awaitable<std::optional<Exchange>> Answer(Stream& stream, beast::flat_buffer& buffer,
                                            const std::string& peer);
  template <class Stream>
  awaitable<bool> Send(Stream& stream, const Exchange& exchange);
  template <class Stream>
  awaitable<bool> SendStream(Stream& stream, const Exchange& exchange);
  awaitable<void> Chore(asio::steady_timer& timer, std::chrono::seconds interval,
                        std::function<void()> job);
  template <class Stream>
  awaitable<void> Serve(Stream& stream, Connection& connection, const std::string& peer);
  awaitable<void> ServePlain(tcp::socket socket, std::string peer);
  awaitable<void> ServeTls(tcp::socket socket, std::string peer);
};

void Server::Impl::BeginStop() {
  if (stopping) return;
  stopping = true;
  boost::system::error_code ignored;
  acceptor.close(ignored);
  if (signals) signals->cancel(ignored);
  for (auto& chore : chores) chore.cancel();
  for (Connection* connection : connections)
    if (connection->idle) connection->transport.cancel();
  if (connections.empty()) return;
  LogLine("stopping: waiting for " + std::to_string(connections.size()) + " connection(s)");
  drain.expires_after(options.drain_timeout);
  drain.async_wait([this](boost::system::error_code ec) {
    if (!ec) io.stop();
  });
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

// Between requests the connection only waits, up to the idle time-out; false when it ends.
template <class Stream>
awaitable<bool> Server::Impl::AwaitRequest(Stream& stream, beast::flat_buffer& buffer,
                                           Connection& connection) {
  if (buffer.size() > 0) co_return true;
  connection.idle = true;
  if (stopping) co_return false;
  beast::get_lowest_layer(stream).expires_after(options.idle_timeout);
  auto [ec, n] = co_await stream.async_read_some(buffer.prepare(4096), kTuple);
  connection.idle = false;
  buffer.commit(n);
  co_return !ec;
}

// Once a byte has arrived the whole request must follow within the read time-out, so a client
// that drips bytes is cut. nullopt: close without a reply.
template <class Stream>
awaitable<std::optional<Exchange>> Server::Impl::Answer(Stream& stream, beast::flat_buffer& buffer,
                                                        const std::string& peer) {
  WireParser parser;
  ApplyLimits(parser, options.limits);
  beast::get_lowest_layer(stream).expires_after(options.read_timeout);
  auto [ec, n] = co_await http::async_read(stream, buffer, parser, kTuple);
  Exchange exchange;
  if (ec) {
    auto refusal = ReadFailureReply(ec);
    if (!refusal) co_return std::nullopt;
    exchange.reply = std::move(*refusal);
    exchange.request.method = exchange.request.path = "-";
    co_return exchange;
  }
  exchange.request = ToRequest(parser.get(), peer, tls.has_value(), options.trust_forwarded_for);
  exchange.route = handler.Classify(exchange.request);
  exchange.reply = co_await Dispatch(exchange.route, exchange.request);
  exchange.version = parser.get().version();
  exchange.keep_alive = parser.get().keep_alive() && !stopping;
  co_return exchange;
}

template <class Stream>
awaitable<bool> Server::Impl::Send(Stream& stream, const Exchange& exchange) {
  const Reply& reply = exchange.reply;
  http::response<http::string_body> response(static_cast<http::status>(reply.status),
                                             exchange.version);
  response.set(http::field::content_type, reply.content_type);
  response.set(http::field::cache_control, "no-store");
  if (reply.retry_after) response.set(http::field::retry_after, std::to_string(*reply.retry_after));
  response.keep_alive(exchange.keep_alive);
  response.body() = reply.body;
  response.prepare_payload();
  beast::get_lowest_layer(stream).expires_after(options.read_timeout);
  auto [ec, n] = co_await http::async_write(stream, response, kTuple);
  co_return !ec;
}

// Close-delimited: the body ends when the connection does, which every client of an event
// stream reads, HTTP/1.0 and proxies included, and no chunk framing can be half-written.
template <class Stream>
awaitable<bool> Server::Impl::SendStream(Stream& stream, const Exchange& exchange) {
  const Reply& reply = exchange.reply;
  http::response<http::empty_body> head(static_cast<http::status>(reply.status),
                                        exchange.version);
  head.set(http::field::content_type, reply.content_type);
  head.set(http::field::cache_control, "no-cache");
  head.set("X-Accel-Buffering", "no");
  head.keep_alive(false);
  metrics.StreamOpened();
  detail::StreamedReply<Stream> streamed(stream, *reply.stream, options.keepalive,
                                         options.read_timeout);
  bool sent = co_await streamed.Send(std::move(head));
  metrics.StreamClosed();
  co_return sent;
}

awaitable<void> Server::Impl::Chore(asio::steady_timer& timer, std::chrono::seconds interval,
                                    std::function<void()> job) {
  for (;;) {
    timer.expires_after(interval);
    auto [ec] = co_await timer.async_wait(kTuple);
    if (ec || stopping) co_return;
    auto [failure] = co_await asio::co_spawn(
        store_pool, [&]() -> awaitable<void> { job(); co_return; }, kTuple);
    if (failure) LogLine("a periodic job ended on an exception");
  }
}

template <class Stream>
awaitable<void> Server::Impl::Serve(Stream& stream, Connection& connection,
                                    const std::string& peer) {
  beast::flat_buffer buffer;
  while (co_await AwaitRequest(stream, buffer, connection)) {
    auto exchange = co_await Answer(stream, buffer, peer);
    if (!exchange) co_return;
    bool streamed = exchange->reply.stream != nullptr;
    bool sent =
        streamed ? co_await SendStream(stream, *exchange) : co_await Send(stream, *exchange);
    const Request& request = exchange->request;
    int status = exchange->reply.status;
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() -
                                                   exchange->start).count();
    metrics.Observe(exchange->route.name, request.method, status, seconds);
    LogRequest({peer, request.method, request.path, status, seconds, exchange->reply.body.size()});
    if (!sent || streamed || !exchange->keep_alive) co_return;
  }
}

awaitable<void> Server::Impl::ServePlain(tcp::socket socket, std::string peer) {
  beast::tcp_stream stream(std::move(socket));
  Connection connection(*this, stream);
  co_await Serve(stream, connection, peer);
  boost::system::error_code ignored;
  stream.socket().shutdown(tcp::socket::shutdown_send, ignored);
}

awaitable<void> Server::Impl::ServeTls(tcp::socket socket, std::string peer) {
  beast::ssl_stream<beast::tcp_stream> stream(beast::tcp_stream(std::move(socket)), *tls);
  Connection connection(*this, beast::get_lowest_layer(stream));
  beast::get_lowest_layer(stream).expires_after(options.read_timeout);
  auto [ec] = co_await stream.async_handshake(ssl::stream_base::server, kTuple);
  if (ec) co_return;
  co_await Serve(stream, connection, peer);
  beast::get_lowest_layer(stream).expires_after(std::chrono::seconds(2));
  co_await stream.async_shutdown(kTuple);
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

void Server::StopOnSignals() {
  Impl& s = *impl_;
  s.signals.emplace(s.io, SIGTERM, SIGINT);
  s.signals->async_wait([&s](boost::system::error_code ec, int) {
    if (!ec) s.BeginStop();
  });
}

void Server::Every(std::chrono::seconds interval, std::function<void()> job) {
  Impl& s = *impl_;
  asio::steady_timer& timer = s.chores.emplace_back(s.io);
  asio::co_spawn(s.io, s.Chore(timer, interval, std::move(job)), [](std::exception_ptr failure) {
    if (failure) LogLine("a periodic job's timer ended on an exception");
  });
}

void Server::Run() {
  Impl& s = *impl_;
  asio::co_spawn(s.io, s.Accept(), [](std::exception_ptr failure) {
    if (failure) LogLine("the listener ended on an exception");
  });
  s.io.run();
}

void Server::Stop() {
  asio::post(impl_->io, [this] { impl_->BeginStop(); });
}

}  // namespace hintwick
