#include <algorithm>

#include "foundation/file/MappedFile.h"
#include "toolchain/common/Messages.h"
#include "toolchain/image/SignatureLayout.h"
#include "toolchain/sign/Signing.h"
#include "toolchain/sign/private/Replacement.h"

namespace toolchain {

namespace {

Result<> checkRooms(const MachOFile& image, const std::vector<SliceRoom>& rooms) {
  for (const SliceRoom& room : rooms) {
    const std::string& name = room.architecture;
    if (room.size == 0 || room.size % 16 != 0) {
      return failure(name + ": size " + std::to_string(room.size) + " is not a multiple of 16");
    }
    if (std::ranges::count(image.slices(), name, &Slice::architecture) == 0) {
      return failure("no slice is named " + name);
    }
  }
  return {};
}

Result<SliceLayout> layOutSlice(const MachOFile& image, const Slice& slice,
                                const AllocateOptions& options) {
  if (options.remove) return layOutUnsigned(image, slice);
  const auto room = std::ranges::find(options.rooms, slice.architecture, &SliceRoom::architecture);
  if (room == options.rooms.end()) {
    return failure("no size was given for slice " + slice.architecture);
  }
  return layOut(image, slice, room->size).mapError(within(slice.architecture));
}

Result<> allocate(const MachOFile& image, const AllocateOptions& options) {
  if (auto checked = checkRooms(image, options.rooms); !checked) return checked;
  std::vector<SliceLayout> slices;
  for (const Slice& slice : image.slices()) {
    auto layout = layOutSlice(image, slice, options);
    if (!layout) return layout.error();
    slices.push_back(std::move(*layout));
  }
  const auto file = layOutFile(image, std::move(slices));
  if (!file) return file.error();
  // Symlinks in the user's path are followed now, not those that appear later.
  std::error_code failed;
  const auto parent = options.output.parent_path();
  const auto folder = std::filesystem::canonical(parent.empty() ? "." : parent, failed);
  if (failed) {
    return foundation::posixError(failed.value(), "cannot write " + options.output.string(),
                                  options.output.native());
  }
  const auto output = folder / options.output.filename();
  Replacement replacement;
  auto done = replacement.prepare(output, fileSize(*file), options.input)
                  .andThen([&](const NewFile& written) { return written.write(codeParts(*file)); })
                  .andThen([&] { return replacement.commit({output}); });
  if (done) replacement.finish();
  return done;
}

}  // namespace

Result<> allocate(const AllocateOptions& options) {
  const auto file = foundation::MappedFile::open(options.input);
  if (!file) return file.error();
  return MachOFile::parse(file->bytes())
      .andThen([&](const MachOFile& image) { return allocate(image, options); })
      .mapError(within(options.input.string()));
}

}  // namespace toolchain
