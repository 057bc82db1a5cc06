#include <cstddef>

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include "foundation/host/FileOpening.h"
#include "tests/support/Test.h"

namespace {

using foundation::Links;

/// From now on openat2 fails in this process as on an older kernel.
bool giveUpOpenat2() {
  sock_filter program[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat2, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog filter = {std::size(program), program};
  return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

TEST(FileOpening, LinksAreRefusedAnywhereInAPath) {
  const TemporaryFolder folder;
  folder.write("real/inner/file", "x");
  fs::create_directory_symlink("real", folder / "link");
  fs::create_symlink("file", folder / "real/inner/link");
  const auto answers = [&] {
    std::string text;
    for (const char* const name : {"real/inner/file", "link/inner/file", "real/inner/link", "link",
                                   "real/../real/inner/file", "real//inner/missing"}) {
      const bool isOpen(foundation::openFile(folder / name, O_RDONLY, Links::refused));
      text += isOpen ? "x" : std::to_string(errno);
      const bool isFolder(foundation::openFolder((folder / name).parent_path(), Links::refused));
      text += isFolder ? " folder, " : " none, ";
    }
    return text;
  };
  const std::string expected = "x folder, 40 none, 40 folder, 40 folder, x folder, 2 folder, ";
  EXPECT_EQ(answers(), expected);
  EXPECT_TRUE(foundation::openFile(folder / "link/inner/link", O_RDONLY));
  EXPECT_EQ(inChildProcess([&] { return giveUpOpenat2() ? answers() : expected; }), expected);
}

}  // namespace
