#include "platform/linux/services/cloudproxyd/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>
#include <vector>

#include "base/text.h"

namespace cloudproxyd {

namespace {

constexpr int kUsageError = 2;
constexpr std::size_t kMaxNameBytes = 64;

bool isName(const std::string& text) {
  return !text.empty() && text.size() <= kMaxNameBytes && std::all_of(text.begin(), text.end(), base::isPrintable);
}

void require(bool condition, const std::string& problem) {
  if (!condition) throw CLI::ValidationError(problem);
}

void addEnvironments(const std::vector<std::string>& texts, Options& options) {
  for (const std::string& text : texts) {
    const std::optional<Environment> environment = parseEnvironment(text);
    require(environment.has_value(), "--env " + text + " is not NAME or NAME:CERT,CERT...");
    require(findEnvironment(options.service.environments, environment->name) == nullptr,
            "--env " + environment->name + " is there twice");
    options.service.environments.push_back(*environment);
  }
  if (texts.empty()) options.service.environments = usualEnvironments(options.service.deviceType);
}

void addService(CLI::App& app, ServiceOptions& service) {
  const std::map<std::string, ListFormat> formats{
      {"new", ListFormat::kNew}, {"old", ListFormat::kOld}, {"both", ListFormat::kBoth}};
  app.add_option("--list-format", service.listFormat, "The form of the list of environments: new, old or both (new)")
      ->transform(CLI::CheckedTransformer(formats).description(""))
      ->option_text("FORM");
  app.add_flag_callback(
      "--no-info", [&service] { service.answersInfo = false; },
      "Does not know the command info, as older proxies do not");
  app.add_option("--device-type", service.deviceType, "The device's type; prod is a production device (prod)")
      ->option_text("TYPE");
}

}  // namespace

std::optional<Environment> parseEnvironment(const std::string& text) {
  const std::size_t colon = text.find(':');
  Environment environment{text.substr(0, colon), {}};
  if (!isName(environment.name)) return std::nullopt;
  if (colon == std::string::npos || colon + 1 == text.size()) return environment;
  for (std::size_t start = colon + 1; start <= text.size();) {
    const std::size_t end = std::min(text.find(',', start), text.size());
    environment.certificates.push_back(text.substr(start, end - start));
    if (!isName(environment.certificates.back())) return std::nullopt;
    start = end + 1;
  }
  return environment;
}

std::optional<int> parseOptions(int argc, const char* const* argv, Options& options) {
  CLI::App app("The cloud proxy of a Linux terminal: takes the requests for the application id 1.", "cloudproxyd");
  app.set_version_flag("--version", "cloudproxyd " JX_VERSION);
  std::string gateway = "gateway.example";
  std::string caFile;
  std::vector<std::string> environments;
  addService(app, options.service);
  app.add_option("--env", environments, "An environment and its certificates, NAME[:CERT,CERT...]; repeatable")
      ->option_text("NAME[:CERT,CERT]...")
      ->allow_extra_args(false);
  app.add_option("--gateway", gateway, "The cloud's gateway, HOST[:PORT] (gateway.example:443)")
      ->option_text("HOST[:PORT]");
  app.add_option("--ca-file", caFile, "Authorities to trust, PEM, in place of the system's")
      ->check(CLI::ExistingFile.description(""))
      ->option_text("FILE");
  app.add_option("--state", options.stateFile, "Keeps the settings here ($JXPLATFORM_ROOT/cloudproxy.json)")
      ->option_text("FILE");
  try {
    app.parse(argc, argv);
    require(isName(options.service.deviceType), "--device-type is not a name");
    const std::optional<Gateway> parsed = parseGateway(gateway);
    require(parsed.has_value(), "--gateway " + gateway + " is not HOST or HOST:PORT, HOST being a name or an address");
    options.gateway = *parsed;
    addEnvironments(environments, options);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : kUsageError;
  }
  options.gateway.caFile = caFile;
  options.service.host = options.gateway.host;
  return std::nullopt;
}

}  // namespace cloudproxyd
