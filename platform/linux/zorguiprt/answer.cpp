#include "platform/linux/zorguiprt/answer.h"

namespace jxplatform {

Answer refusal(int status, const std::string& reason) {
  return {status, "text/plain; charset=utf-8", reason + "\n", ""};
}

Answer methodRefusal(const std::string& allowed) {
  Answer answer = refusal(405, "only " + allowed + " is answered here");
  answer.allow = allowed;
  return answer;
}

}  // namespace jxplatform
