#include "platform/linux/zorguiprt/screen_json.h"

#include <limits>
#include <nlohmann/json.hpp>

#include "base/text.h"
#include "platform/linux/support/failure.h"
#include "platform/linux/support/json_text.h"

namespace jxplatform {
namespace {

using Json = nlohmann::ordered_json;

std::optional<int> asInt(const Json& value) {
  if (!value.is_number_integer()) return std::nullopt;
  constexpr auto kLargest = std::numeric_limits<std::int32_t>::max();
  constexpr auto kSmallest = std::numeric_limits<std::int32_t>::min();
  if (value.is_number_unsigned()) {
    const auto number = value.get<std::uint64_t>();
    return number <= std::uint64_t{kLargest} ? std::optional<int>(static_cast<int>(number)) : std::nullopt;
  }
  const auto number = value.get<std::int64_t>();
  return number >= kSmallest ? std::optional<int>(static_cast<int>(number)) : std::nullopt;
}

std::map<std::string, std::optional<std::string>> readVars(const Json& vars) {
  if (!vars.is_object()) throw Failure("\"vars\" is not an object");
  std::map<std::string, std::optional<std::string>> read;
  for (const auto& [name, value] : vars.items()) {
    if (!value.is_null() && !value.is_string()) {
      throw Failure(R"("vars": the value of ")" + name + "\" is neither a string nor null");
    }
    read[name] = value.is_null() ? std::nullopt : std::optional(value.get<std::string>());
  }
  return read;
}

PageResult readResult(const Json& body) {
  if (!body.is_object()) throw Failure("the body is not a JSON object");
  PageResult result;
  for (const auto& [name, value] : body.items()) {
    if (name == "result") {
      const auto number = asInt(value);
      if (!number) throw Failure("\"result\" is not an integer of 32 bits");
      result.result = *number;
    } else if (name == "vars") {
      result.vars = readVars(value);
    } else {
      throw Failure('"' + name + R"(" is neither "result" nor "vars")");
    }
  }
  if (!body.contains("result")) throw Failure("\"result\" is missing");
  return result;
}

[[noreturn]] void failAt(std::size_t byte) {
  throw Failure("the body is not JSON, from byte " + std::to_string(byte) + " on");
}

}  // namespace

// Put together as text: the library's objects need memory to be deleted, and where there is none end the process.
std::string screenJson(std::uint64_t id, bool synchronous, const PageContent& content) {
  std::string vars;
  for (const auto& [name, value] : content.vars) {
    vars += (vars.empty() ? "" : ",") + quotedJson(name) + ":" + quotedJson(value);
  }
  return "{\"id\":" + std::to_string(id) + ",\"page\":" + quotedJson(content.page) +
         ",\"sync\":" + (synchronous ? "true" : "false") + ",\"vars\":{" + vars +
         "},\"html\":" + quotedJson(content.html) + "}";
}

PageResult parseResult(const std::string& body) {
  const std::size_t zero = findZeroByte(body);
  if (zero != std::string::npos) failAt(zero + 1);
  try {
    return readResult(Json::parse(body));
  } catch (const Json::parse_error& error) {
    failAt(error.byte);
  } catch (const Json::out_of_range&) {
    throw Failure("the body has a number beyond the range of double");
  }
}

std::optional<std::uint64_t> parseNumber(const std::string& text) {
  if (text.empty()) return std::nullopt;
  std::uint64_t number = 0;
  for (const char c : text) {
    if (!base::isDigit(c)) return std::nullopt;
    number = number * 10 + static_cast<std::uint64_t>(c - '0');
    if (number > kLargestId) return std::nullopt;
  }
  return number;
}

}  // namespace jxplatform
