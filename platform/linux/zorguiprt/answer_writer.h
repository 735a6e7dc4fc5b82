// Answers as they go over a connection.
#pragma once

#include "platform/linux/zorguiprt/answer.h"
#include "platform/linux/zorguiprt/connection.h"

namespace jxplatform {

enum class AnswerPart { kWhole, kHead };  // of the answer to a HEAD request the head alone goes out

// Writes an answer of HTTP/1.1, the last of its connection, with what browsers are told of everything here: the content
// security policy, that types are not to be guessed, that nothing is to be kept. A client that does not take it within
// the connection's times goes without. Blocks. Throws std::bad_alloc before the first byte alone.
void writeAnswer(Connection& connection, const Answer& answer, AnswerPart part);

}  // namespace jxplatform
