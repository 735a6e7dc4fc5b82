#include "platform/linux/zorguiprt/answer_writer.h"

#include <boost/beast/core/buffers_to_string.hpp>
#include <boost/beast/http/fields.hpp>
#include <boost/beast/http/message.hpp>
#include <string>

#include "base/ignore.h"
#include "platform/linux/zorguiprt/shell_document.h"

namespace jxplatform {
namespace {

namespace http = boost::beast::http;

constexpr unsigned kHttp11 = 11;

void setOwnFields(http::response_header<>& head) {
  head.set(http::field::connection, "close");
  head.set("Content-Security-Policy", kContentSecurityPolicy);
  head.set("X-Content-Type-Options", "nosniff");
  head.set("Referrer-Policy", "no-referrer");
  head.set("Cross-Origin-Resource-Policy", "same-origin");
  head.set(http::field::cache_control, "no-store");
}

// A status of 204 stands for an answer without a body, which has no length either.
void setBodyFields(http::response_header<>& head, const Answer& answer) {
  if (head.result() != http::status::no_content) {
    head.set(http::field::content_length, std::to_string(answer.body.size()));
  }
  if (!answer.contentType.empty()) head.set(http::field::content_type, answer.contentType);
  if (!answer.allow.empty()) head.set(http::field::allow, answer.allow);
}

std::string headOf(const Answer& answer) {
  http::response_header<> head;
  head.result(static_cast<unsigned>(answer.status));
  setOwnFields(head);
  setBodyFields(head, answer);
  return boost::beast::buffers_to_string(http::fields::writer(head, kHttp11, head.result_int()).get());
}

}  // namespace

void writeAnswer(Connection& connection, const Answer& answer, AnswerPart part) {
  const std::string head = headOf(answer);
  const base::Deadline end(Connection::kWholeMs);
  const bool taken = connection.write(head, end);
  // Nobody is left to be told that the client did not take it.
  if (taken && part == AnswerPart::kWhole) base::ignore(connection.write(answer.body, end));
}

}  // namespace jxplatform
