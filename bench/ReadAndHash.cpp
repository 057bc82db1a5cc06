// The lower bound of signing an app: reads every file of a folder once and feeds it to SHA-1 and
// SHA-256, with one thread per core. Independent of this project's code.
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <openssl/evp.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using Context = std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)>;
using Algorithm = std::unique_ptr<EVP_MD, decltype(&EVP_MD_free)>;

std::vector<std::string> filesBelow(const char* folder) {
  std::vector<std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    if (entry.symlink_status().type() == fs::file_type::regular) files.push_back(entry.path());
  }
  return files;
}

/// One per thread.
class Worker {
 public:
  bool hash(const std::string& path) {
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) return false;
    EVP_DigestInit_ex2(one_.get(), sha1_.get(), nullptr);
    EVP_DigestInit_ex2(two_.get(), sha256_.get(), nullptr);
    ssize_t count = 0;
    while ((count = ::read(file, buffer_.data(), buffer_.size())) > 0) {
      EVP_DigestUpdate(one_.get(), buffer_.data(), static_cast<std::size_t>(count));
      EVP_DigestUpdate(two_.get(), buffer_.data(), static_cast<std::size_t>(count));
    }
    unsigned char digest[EVP_MAX_MD_SIZE];
    EVP_DigestFinal_ex(one_.get(), digest, nullptr);
    EVP_DigestFinal_ex(two_.get(), digest, nullptr);
    ::close(file);
    return count == 0;
  }

 private:
  Algorithm sha1_{EVP_MD_fetch(nullptr, "SHA1", nullptr), EVP_MD_free};
  Algorithm sha256_{EVP_MD_fetch(nullptr, "SHA256", nullptr), EVP_MD_free};
  Context one_{EVP_MD_CTX_new(), EVP_MD_CTX_free};
  Context two_{EVP_MD_CTX_new(), EVP_MD_CTX_free};
  std::vector<char> buffer_ = std::vector<char>(std::size_t{256} << 10);
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("usage: read-and-hash FOLDER\n", stderr);
    return 2;
  }
  const std::vector<std::string> files = filesBelow(argv[1]);
  std::atomic<std::size_t> next{0};
  std::atomic<bool> failed{false};
  const auto run = [&] {
    Worker worker;
    for (std::size_t i = next++; i < files.size(); i = next++) {
      if (!worker.hash(files[i])) failed = true;
    }
  };
  {
    std::vector<std::jthread> threads;
    for (unsigned i = 0; i < std::thread::hardware_concurrency(); ++i) threads.emplace_back(run);
  }
  return failed ? 1 : 0;
}
