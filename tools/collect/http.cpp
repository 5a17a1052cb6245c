#include "tools/collect/http.h"

#include <algorithm>
#include <array>
#include <exception>
#include <stdexcept>

namespace vantamo::tools::collect {
namespace {

struct Header {
  const char* name;
  const char* value;
};

// Nothing from elsewhere is loaded or run, nobody frames the page, and nothing is kept.
constexpr std::array<Header, 7> headersOfAll = {{
    {"Content-Security-Policy",
     "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; connect-src "
     "'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"X-Frame-Options", "DENY"},
    {"Referrer-Policy", "no-referrer"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
    {"Cross-Origin-Opener-Policy", "same-origin"},
    {"Cache-Control", "no-store"},
}};

Response owned(MHD_Response* response, std::string_view type) {
  if (response == nullptr) throw std::bad_alloc();
  Response owner(response);
  addHeader(owner, "Content-Type", std::string(type));
  for (const Header& header : headersOfAll) addHeader(owner, header.name, header.value);
  return owner;
}

MHD_Result collectValue(void* pairs, MHD_ValueKind /*kind*/, const char* name, const char* value) {
  constexpr std::size_t most = 200;
  try {
    auto& list = *static_cast<Pairs*>(pairs);
    if (list.size() == most) return MHD_NO;
    list.emplace_back(name, value == nullptr ? "" : value);
    return MHD_YES;
  } catch (const std::exception&) {
    return MHD_NO;
  }
}

// A producer and what of its last piece is not yet sent.
struct Stream {
  std::unique_ptr<Producer> producer;
  std::string piece;
  std::size_t sent = 0;
};

ssize_t readStream(void* context, std::uint64_t /*position*/, char* buffer, std::size_t room) {
  auto& stream = *static_cast<Stream*>(context);
  try {
    if (stream.sent == stream.piece.size()) {
      stream.piece = stream.producer->next();
      stream.sent = 0;
    }
    if (stream.piece.empty()) {
      return stream.producer->waitForMore() ? 0 : MHD_CONTENT_READER_END_OF_STREAM;
    }
    const std::size_t count = std::min(room, stream.piece.size() - stream.sent);
    std::copy_n(stream.piece.data() + stream.sent, count, buffer);
    stream.sent += count;
    return static_cast<ssize_t>(count);
  } catch (const std::exception&) {
    return MHD_CONTENT_READER_END_WITH_ERROR;
  }
}

void freeStream(void* context) { delete static_cast<Stream*>(context); }

}  // namespace

Pairs valuesOf(MHD_Connection* connection, MHD_ValueKind kind) {
  Pairs pairs;
  ::MHD_get_connection_values(connection, kind, &collectValue, &pairs);
  return pairs;
}

Response textResponse(std::string_view body, std::string_view type) {
  // MHD copies the bytes; its interface takes them as not constant all the same.
  return owned(::MHD_create_response_from_buffer(body.size(), const_cast<char*>(body.data()),
                                                 MHD_RESPMEM_MUST_COPY),
               type);
}

Response streamedResponse(std::unique_ptr<Producer> producer, std::string_view type) {
  constexpr std::size_t blockSize = 16'384;
  auto stream = std::make_unique<Stream>();
  stream->producer = std::move(producer);
  MHD_Response* response = ::MHD_create_response_from_callback(
      MHD_SIZE_UNKNOWN, blockSize, &readStream, stream.get(), &freeStream);
  if (response != nullptr) static_cast<void>(stream.release());  // the response frees it
  return owned(response, type);
}

void addHeader(const Response& response, const char* name, const std::string& value) {
  if (::MHD_add_response_header(response.get(), name, value.c_str()) != MHD_YES) {
    throw std::runtime_error(std::string("header ") + name + " cannot be sent");
  }
}

MHD_Result queue(MHD_Connection* connection, unsigned status, const Response& response) {
  return ::MHD_queue_response(connection, status, response.get());
}

}  // namespace vantamo::tools::collect
