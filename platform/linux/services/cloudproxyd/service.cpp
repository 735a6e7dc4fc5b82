#include "platform/linux/services/cloudproxyd/service.h"

#include <utility>

#include "platform/linux/support/failure.h"

namespace cloudproxyd {

namespace {

using jxplatform::Failure;
using zoripc::JSObject;

JSObject success() {
  JSObject outcome = JSObject::object();
  outcome["result"] = "success";
  return outcome;
}

JSObject failure(const std::string& reason) {
  JSObject outcome = JSObject::object();
  outcome["result"] = "error";
  outcome["error_reason"] = reason;
  return outcome;
}

// Sends `outcome` as the response to `command`.
void respond(const Service::Reply& reply, const JSObject& command, JSObject outcome) {
  if (command.isString()) outcome["command"] = command;
  JSObject response = JSObject::object();
  response["proxy"] = std::move(outcome);
  reply(response);
}

bool isNumeric(const JSObject& value) { return value.isInt() || value.isDouble(); }

JSObject outcomeOf(const GatewayAnswer& answer) {
  JSObject outcome = answer.answered ? success() : failure(answer.reason);
  outcome["error_code"] = answer.code;
  if (!answer.reason.empty()) outcome["error_reason"] = answer.reason;
  return outcome;
}

JSObject namesOf(const Environments& environments) {
  JSObject list = JSObject::array();
  for (const Environment& environment : environments) list.append(environment.name);
  return list;
}

JSObject environmentsOf(const Environments& environments) {
  JSObject list = JSObject::array();
  for (const Environment& environment : environments) {
    JSObject entry = JSObject::object();
    entry["name"] = environment.name;
    entry["prod"] = environment.name == "prod";
    entry["certs"] = JSObject::array();
    for (const std::string& certificate : environment.certificates) entry["certs"].append(certificate);
    list.append(entry);
  }
  return list;
}

}  // namespace

Service::Service(ServiceOptions options, Settings settings, StartCheck startCheck, Keep keep, Tell tell)
    : options_(std::move(options)),
      settings_(std::move(settings)),
      startCheck_(std::move(startCheck)),
      keep_(std::move(keep)),
      tell_(std::move(tell)) {}

void Service::take(const JSObject& message, const Reply& reply) {
  const JSObject& request = message["proxy"];
  const JSObject& command = request["command"];
  if (!request.has("command") && request.has("loglevel")) return setLogLevel(request["loglevel"]);
  if (!command.isString()) return respond(reply, command, failure("the request has no command"));
  const std::string word = command.getString();
  if (word == "info" && options_.answersInfo) return respond(reply, command, info());
  if (word == "readconfig") return respond(reply, command, readConfig());
  if (word == "writeconfig") return respond(reply, command, writeConfig(request));
  if (word == "cloudcheck") return check(reply);
  respond(reply, JSObject(), failure("unknown command"));
}

JSObject Service::info() const {
  JSObject outcome = success();
  outcome["version"] = JX_VERSION;
  outcome["device_type"] = options_.deviceType;
  outcome["auth_ex_support"] = supportsAuthEx(options_.environments) ? 1 : 0;
  return outcome;
}

JSObject Service::readConfig() const {
  JSObject outcome = success();
  outcome["loglevel"] = settings_.logLevel;
  outcome["cloud_env"] = settings_.environment;
  outcome["cloud_hostname"] = options_.host;
  if (supportsAuthEx(options_.environments)) outcome["auth_ex"] = settings_.authEx ? 1 : 0;
  if (options_.listFormat != ListFormat::kNew) outcome["cloud_env_list"] = namesOf(options_.environments);
  if (options_.listFormat != ListFormat::kOld) outcome["cloud_env_list2"] = environmentsOf(options_.environments);
  return outcome;
}

JSObject Service::writeConfig(const JSObject& request) {
  if (!request["cloud_env"].isString()) return failure("the request has no cloud_env");
  Settings wanted = settings_;
  wanted.environment = request["cloud_env"].getString();
  if (request.has("auth_ex")) {
    if (!isNumeric(request["auth_ex"])) return failure("auth_ex is not a number");
    wanted.authEx = request["auth_ex"].getInt() != 0;
  }
  try {
    checkSettings(wanted, options_.environments);
    change(wanted);
    return success();
  } catch (const Failure& refused) {
    return failure(refused.what());
  }
}

void Service::check(const Reply& reply) {
  const bool started =
      startCheck_([reply](const GatewayAnswer& answer) { respond(reply, "cloudcheck", outcomeOf(answer)); });
  if (!started) respond(reply, "cloudcheck", failure("too many checks are under way"));
}

// Compared as a double: as an int a number beyond its range would have become the nearest one in it.
void Service::setLogLevel(const JSObject& level) {
  if (!isNumeric(level) || level.getDouble() < 0 || level.getDouble() > kMaxLogLevel) {
    return tell_("A log level that is none has been ignored");
  }
  Settings wanted = settings_;
  wanted.logLevel = level.getInt();
  try {
    change(wanted);
  } catch (const Failure& refused) {
    tell_("The log level stays " + std::to_string(settings_.logLevel) + ": " + refused.what());
  }
}

// Throws Failure when they cannot be kept, in which case nothing has changed.
void Service::change(Settings settings) {
  try {
    keep_(settings);
  } catch (const Failure& refused) {
    throw Failure(std::string("the settings cannot be kept: ") + refused.what());
  }
  settings_ = std::move(settings);  // cannot fail, so that it never differs from what is kept
  tell_("Log level " + std::to_string(settings_.logLevel) + ", environment " + settings_.environment +
        (settings_.authEx ? ", auth-ex" : ""));
}

}  // namespace cloudproxyd
