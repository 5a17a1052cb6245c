#include "tools/doctor.h"

#include <netdb.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <system_error>

#include "cores/default/core_settings.h"
#include "cores/default/curl_transport.h"
#include "cores/default/network_state.h"
#include "platform/directories.h"
#include "platform/file.h"
#include "platform/private_folder.h"
#include "platform/random.h"
#include "platform/url_host.h"
#include "support/settings_file.h"
#include "tools/findings.h"

namespace vantamo::tools {
namespace {

namespace fs = std::filesystem;

struct Endpoint {
  std::string url;
  std::string host;
  bool secure = false;
};

// --- Settings

Value::Map readItems(const std::string& bundle, const std::string& module, Findings& findings) {
  const std::string folder = bundle + "/" + module + ".bundle";
  const std::string file = folder + "/settings.json";
  std::error_code error;
  if (platform::exists(folder) && !fs::is_directory(folder, error)) {
    findings.fail("settings", folder + " is not a folder");
    return {};
  }
  if (platform::isAbsent(file)) {
    findings.ok("settings", file + " is absent: defaults hold");
    return {};
  }
  support::SettingsFile read = support::readSettingsFile(folder);
  if (read.problem) {
    findings.fail("settings", *read.problem);
  } else {
    findings.ok("settings", file + " is well-formed");
  }
  return std::move(read.items);
}

core::CoreSettings checkCoreSettings(const Value::Map& items, Findings& findings) {
  core::ParsedCoreSettings parsed = core::parseCoreSettings(items);
  for (const std::string& complaint : parsed.complaints) findings.fail("settings", complaint);
  return std::move(parsed.settings);
}

// The item as the module takes it; nothing when it has to do without.
std::optional<std::string> textItem(const Value::Map& items, const std::string& key,
                                    Findings& findings) {
  const Value* item = items.find(key);
  if (item == nullptr || item->isNull()) return {};
  if (const std::string* text = item->ifString()) return *text;
  findings.fail("settings", key + " must be a string but is of kind " + std::string(item->kind()) +
                                "; it counts as absent");
  return {};
}

void checkNames(const Value::Map& items, Findings& findings) {
  for (const char* key : {"AppName", "ClientId"}) {
    const auto text = textItem(items, key, findings);
    if (text && !text->empty()) {
      findings.ok("settings", std::string(key) + " is " + *text);
    } else {
      findings.warn("settings", std::string(key) + " is absent: tags go out without it");
    }
  }
}

bool hasScheme(const std::string& url, std::string_view scheme) {
  return ::strncasecmp(url.c_str(), scheme.data(), scheme.size()) == 0;
}

std::optional<Endpoint> checkEndpoint(const Value::Map& items, Findings& findings) {
  const auto url = textItem(items, "PostMessageUrl", findings);
  if (!url || url->empty()) {
    findings.fail("endpoint", "PostMessageUrl is absent: nothing is sent");
    return {};
  }
  const bool secure = hasScheme(*url, "https://");
  const std::string host = platform::urlHost(*url).value_or("");
  if ((!secure && !hasScheme(*url, "http://")) || host.empty()) {
    findings.fail("endpoint", *url + " is no http or https URL with a host");
    return {};
  }
  findings.ok("endpoint", *url);
  return Endpoint{*url, host, secure};
}

// --- Queue

// Takes away what a check has made, and nothing else.
class MadeFolders {
 public:
  explicit MadeFolders(std::initializer_list<std::string> innermostFirst) {
    for (const std::string& path : innermostFirst) {
      if (platform::isAbsent(path)) made_.push_back(path);
    }
  }
  MadeFolders(const MadeFolders&) = delete;
  MadeFolders& operator=(const MadeFolders&) = delete;
  ~MadeFolders() {
    for (const std::string& path : made_) ::rmdir(path.c_str());
  }

 private:
  std::vector<std::string> made_;
};

void writeProbe(const std::string& path) {
  const auto folder = platform::PrivateFolder::at(path);
  const std::string name = "doctor-" + platform::randomUuid();
  const auto file = folder.open(name);
  const std::string page(4096, '\n');
  const bool written =
      ::write(file.fd.get(), page.data(), page.size()) == static_cast<ssize_t>(page.size());
  const int reason = errno;
  folder.remove(name);
  if (!written) throw std::system_error(reason, std::generic_category(), path);
}

void checkQueue(const std::optional<std::string>& application, Findings& findings) {
  try {
    const std::string caches = platform::cachesDirectory();
    const std::string all = caches + "/NQCore";
    const std::string path = all + "/" + application.value_or("doctor-" + platform::randomUuid());
    const MadeFolders made({path, all, caches});
    struct stat before {};
    const bool wasThere = ::lstat(path.c_str(), &before) == 0;
    if (wasThere && before.st_uid != ::geteuid()) {
      return findings.fail("queue", path + " belongs to another user");
    }
    writeProbe(path);
    if (wasThere && (before.st_mode & 07777U) != 0700) {
      findings.warn("queue", path + " was open to others; it is this user's alone now");
    } else {
      findings.ok("queue", (application ? path : "a folder in " + all) +
                               (wasThere ? " can be written" : " can be made and written") +
                               ", private to this user");
    }
  } catch (const std::exception& exception) {
    findings.fail("queue", exception.what());
  }
}

// --- Network

std::string numeric(const addrinfo& entry) {
  std::array<char, NI_MAXHOST> text{};
  const int failed = ::getnameinfo(entry.ai_addr, entry.ai_addrlen, text.data(), text.size(),
                                   nullptr, 0, NI_NUMERICHOST);
  return failed != 0 ? "?" : text.data();
}

bool goesThroughProxy(const Endpoint& endpoint, const core::Proxies& proxies) {
  return !core::isLoopbackHost(endpoint.host) &&
         !(endpoint.secure ? proxies.https : proxies.http).empty();
}

void checkName(const Endpoint& endpoint, const core::Proxies& proxies, Findings& findings) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  const int problem = ::getaddrinfo(endpoint.host.c_str(), nullptr, &hints, &found);
  if (problem != 0) {
    const std::string text = endpoint.host + ": " + ::gai_strerror(problem);
    if (goesThroughProxy(endpoint, proxies)) return findings.warn("name", text + " (a proxy may)");
    return findings.fail("name", text);
  }
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, &freeaddrinfo);
  std::string text = endpoint.host + " is";
  for (const addrinfo* entry = found; entry != nullptr; entry = entry->ai_next) {
    text.append(" ").append(numeric(*entry));
  }
  findings.ok("name", text);
}

// What is wrong; "" when nothing is.
std::string checkConnection(const Endpoint& endpoint, std::shared_ptr<core::CurlOptions> options,
                            Findings& findings) {
  const std::string way = goesThroughProxy(endpoint, options->proxies) ? " through the proxy" : "";
  std::string problem;
  try {
    problem = core::CurlTransport(std::move(options)).connect(endpoint.url);
  } catch (const std::exception& exception) {
    problem = exception.what();
  }
  if (!problem.empty()) {
    findings.fail("connection", problem);
  } else if (endpoint.secure) {
    findings.ok("connection", "TLS" + way + ", the certificate is verified");
  } else {
    findings.ok("connection", "made" + way + ", without TLS: tags can be read on their way");
  }
  return problem;
}

// --- Clock

// Without a request there is no other clock to compare with but a certificate's dates.
void checkClock(const std::string& connectionProblem, Findings& findings) {
  using std::chrono::milliseconds;
  constexpr std::int64_t start2024 = 1'704'067'200'000;
  const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  const std::int64_t now = std::chrono::duration_cast<milliseconds>(sinceEpoch).count();
  const auto says = [&](std::string_view word) {
    return connectionProblem.find(word) != std::string::npos;
  };
  if (now < start2024) {
    findings.warn("clock", isoTime(now) + " is in the past");
  } else if (says("not yet valid") || says("expired")) {
    findings.warn("clock", isoTime(now) + " is outside the certificate's dates: one is wrong");
  } else {
    findings.ok("clock", isoTime(now));
  }
}

std::shared_ptr<core::CurlOptions> transportOptions(const core::CoreSettings& settings,
                                                    const std::string& certificates) {
  auto options = std::make_shared<core::CurlOptions>();
  options->connectTimeout = settings.connectTimeout;
  options->requestTimeout = settings.requestTimeout;
  options->proxies = core::Proxies::fromEnvironment();
  options->certificateFile = certificates;
  return options;
}

}  // namespace

int examine(const DoctorOptions& options, std::ostream& lines) {
  std::error_code error;
  if (!fs::is_directory(options.bundle, error)) {
    throw std::runtime_error(options.bundle + ": not a folder");
  }
  Findings findings(lines, options.colours);
  const Value::Map moduleItems = readItems(options.bundle, "VTMod", findings);
  const core::CoreSettings settings =
      checkCoreSettings(readItems(options.bundle, "NQCore", findings), findings);
  checkNames(moduleItems, findings);
  const auto endpoint = checkEndpoint(moduleItems, findings);
  checkQueue(settings.applicationId ? settings.applicationId : options.application, findings);
  std::string problem;
  if (endpoint) {
    const auto transport = transportOptions(settings, options.certificates);
    checkName(*endpoint, transport->proxies, findings);
    problem = checkConnection(*endpoint, transport, findings);
  }
  checkClock(problem, findings);
  return findings.failed() ? 1 : 0;
}

}  // namespace vantamo::tools
