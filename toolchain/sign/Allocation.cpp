#include <algorithm>

#include "foundation/file/MappedFile.h"
#include "toolchain/common/Messages.h"
#include "toolchain/image/SignatureLayout.h"
#include "toolchain/sign/Signing.h"
#include "toolchain/sign/private/Replacement.h"

namespace toolchain {

namespace {

const SliceRoom* roomFor(const Slice& slice, const std::vector<SliceRoom>& rooms) {
  for (const SliceRoom& room : rooms) {
    if (room.architecture == slice.architecture) return &room;
  }
  return nullptr;
}

Result<> checkRooms(const MachOFile& image, const std::vector<SliceRoom>& rooms) {
  for (const SliceRoom& room : rooms) {
    const std::string& name = room.architecture;
    if (room.size == 0 || room.size % 16 != 0) {
      return failure(name + ": size " + std::to_string(room.size) + " is not a multiple of 16");
    }
    const auto& slices = image.slices();
    const bool isThere = std::any_of(slices.begin(), slices.end(), [&](const Slice& slice) {
      return slice.architecture == name;
    });
    if (!isThere) return failure("no slice is named " + name);
  }
  return {};
}

Result<SliceLayout> layOutSlice(const MachOFile& image, const Slice& slice,
                                const AllocateOptions& options) {
  if (options.remove) return layOutUnsigned(image, slice);
  const SliceRoom* room = roomFor(slice, options.rooms);
  if (!room) return failure("no size was given for slice " + slice.architecture);
  auto layout = layOut(image, slice, room->size);
  if (!layout) return within(slice.architecture, layout.error());
  return layout;
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
  const auto written = replacement.prepare(output, fileSize(*file), options.input);
  if (!written) return written.error();
  for (const FilePart& part : codeParts(*file)) {
    if (auto done = written->write(part.offset, part.content); !done) return done;
  }
  if (auto done = written->flush(); !done) return done;
  auto committed = replacement.commit({output});
  if (committed) replacement.finish();
  return committed;
}

}  // namespace

Result<> allocate(const AllocateOptions& options) {
  const auto file = foundation::MappedFile::open(options.input);
  if (!file) return file.error();
  const auto image = MachOFile::parse(file->bytes());
  if (!image) return within(options.input.string(), image.error());
  const auto done = allocate(*image, options);
  return done ? done : within(options.input.string(), done.error());
}

}  // namespace toolchain
