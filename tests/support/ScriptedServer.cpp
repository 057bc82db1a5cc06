#include "tests/support/ScriptedServer.h"

#include <sys/prctl.h>

#include "tests/support/Test.h"

namespace test {

ScriptedServer::ScriptedServer(const std::vector<std::string>& behaviours, const std::string& tls) {
  const std::string service = RUNS "/service.py";
  std::vector<std::string> command = {"python3", "-S", "-E", service, "--record", folder_.path()};
  for (const auto& behaviour : behaviours) command.insert(command.end(), {"--behave", behaviour});
  if (!tls.empty()) command.insert(command.end(), {"--tls", tls});
  const fs::path output = folder_.write("output", "");
  process_ = ::fork();
  if (process_ == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);  // it ends with this process, however that ends
    become(command, ::open(output.c_str(), O_WRONLY));
  }
  std::string said;
  const std::string start = "listening on ";
  const bool isReady = eventually([&] {
    said = contentsOf(output);
    return said.ends_with("\n\n") && said.starts_with(start);
  });
  if (!isReady) throw std::runtime_error("service.py: " + said);
  address_ = said.substr(start.size(), said.find('\n') - start.size());
}

ScriptedServer::~ScriptedServer() {
  ::kill(process_, SIGKILL);
  ::waitpid(process_, nullptr, 0);
}

std::vector<std::string> ScriptedServer::requests() const {
  std::vector<std::string> requests;
  for (fs::path file; fs::exists(file = folder_ / std::to_string(requests.size()));) {
    requests.push_back(contentsOf(file));
  }
  return requests;
}

void writeServerCertificate(const fs::path& folder) {
  outputOf({"bash", "-e", "-c", ". $0/functions.sh; FOLDER=$1 HOSTS=localhost; server_certificate",
            RUNS, folder});
}

std::string escaped(std::string_view bytes) {
  std::string text;
  for (const char byte : bytes) text += "\\x" + hexOf({&byte, 1});
  return text;
}

}  // namespace test
