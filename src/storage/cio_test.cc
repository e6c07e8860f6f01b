#include "storage/cio.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>
#include <stdlib.h>

#include "base/errors.h"
#include "base/platform.h"
#include "support/fault_platform.h"
#include "support/temp_dir.h"

namespace {

// The detail of the newest post; all go off the stack.
std::string takePost() {
  const std::string detail = PBerrorFind("cfio", 0, false).value_or("no post");
  PBdiscardErrors();
  return detail;
}

// A file as an array of bytes and a position.
struct Model {
  std::string bytes;
  std::size_t position = 0;

  void write(const std::string& data) {
    if (data.empty()) return;
    if (bytes.size() < position + data.size()) bytes.resize(position + data.size());
    bytes.replace(position, data.size(), data);
    position += data.size();
  }
  std::string read(std::size_t size) {
    if (position >= bytes.size()) return {};
    const std::string data = bytes.substr(position, size);
    position += data.size();
    return data;
  }
  int getc() {
    const std::string data = read(1);
    return data.empty() ? -1 : static_cast<unsigned char>(data.front());
  }
};

std::string readBytes(int file, std::size_t size) {
  std::string data(size, '?');
  const std::int64_t count = PBcfread(file, data.data(), size);
  RC_ASSERT(count >= 0);
  return data.substr(0, static_cast<std::size_t>(count));
}

// Most stay in the first block of a compressed file, some go over several.
std::int64_t anySize(std::int64_t lowest) {
  return *rc::gen::inRange<std::int64_t>(lowest, *rc::gen::element(12000, 12000, 12000, 300000));
}

void seekBoth(int file, Model& model) {
  const int whence = *rc::gen::element(SEEK_SET, SEEK_CUR, SEEK_END);
  const std::int64_t target = anySize(-5);
  const auto base = static_cast<std::int64_t>(whence == SEEK_SET   ? 0
                                              : whence == SEEK_CUR ? model.position
                                                                   : model.bytes.size());
  RC_ASSERT(PBcfseek(file, target - base, whence) == (target < 0 ? -2 : 0));
  if (target >= 0) model.position = static_cast<std::size_t>(target);
}

void stepBoth(int file, Model& model) {
  switch (*rc::gen::inRange(0, 9)) {
    case 0: {
      const std::string data(static_cast<std::size_t>(anySize(0)), *rc::gen::arbitrary<char>());
      RC_ASSERT(PBcfwrite(file, data.data(), data.size()) ==
                static_cast<std::int64_t>(data.size()));
      return model.write(data);
    }
    case 1: {
      const auto size = static_cast<std::size_t>(anySize(0));
      RC_ASSERT(readBytes(file, size) == model.read(size));
      return;
    }
    case 2:
      return seekBoth(file, model);
    case 3:
      RC_ASSERT(PBcfgetc(file) == model.getc());
      return;
    case 4: {
      const int byte = *rc::gen::inRange(0, 256);
      RC_ASSERT(PBcfputc(file, byte) == byte);
      return model.write(std::string(1, static_cast<char>(byte)));
    }
    case 5:
      RC_ASSERT(PBcfflush(file) == 0);
      return;
    case 6: {
      const std::int64_t size = anySize(0);
      RC_ASSERT(PBcftruncate(file, size) == 0);
      model.bytes.resize(std::min(model.bytes.size(), static_cast<std::size_t>(size)));
      return;
    }
    case 7:
      RC_ASSERT(PBcfsize(file) == static_cast<std::int64_t>(model.bytes.size()));
      return;
    default:
      RC_ASSERT(PBcftell(file) == static_cast<std::int64_t>(model.position));
  }
}

void checkLikeBytes(int (*openNew)(const std::string&, int)) {
  const TempDir directory;
  const std::string path = directory.path("file");
  Model model;
  for (const int flag : {kCfNew, kCfUpdate, kCfRead}) {
    const int file = flag == kCfNew ? openNew(path, flag) : PBcfopen(path, flag);
    RC_ASSERT(file >= 0);
    RC_ASSERT(PBcfisCompressed(file) == (openNew == PBcfopen));
    model.position = 0;
    if (flag == kCfRead) RC_ASSERT(readBytes(file, model.bytes.size() + 1) == model.bytes);
    if (flag != kCfRead) {
      for (int steps = *rc::gen::inRange(1, 60); steps > 0; --steps) stepBoth(file, model);
    }
    RC_ASSERT(PBcfclose(file) == 0);
    RC_ASSERT(PBcfCheck(path, [](std::string_view) {}) == 0);
  }
  if (openNew == PBcfopenPlain) RC_ASSERT(directory.read("file") == model.bytes);
  PBdiscardErrors();
}

RC_GTEST_PROP(Cio, PlainFilesBehaveLikeAnArrayOfBytes, ()) { checkLikeBytes(PBcfopenPlain); }
RC_GTEST_PROP(Cio, CompressedFilesBehaveLikeAnArrayOfBytes, ()) {
  setenv("MVK_NUM_COMPRESS_CACHE", *rc::gen::element("2", "3", "5"), 1);
  checkLikeBytes(PBcfopen);
  unsetenv("MVK_NUM_COMPRESS_CACHE");
}

TEST(Cio, AnEmptyFileStaysPlain) {
  const TempDir directory;
  const int file = PBcfopen(directory.write("f", ""), kCfUpdate);
  EXPECT_FALSE(PBcfisCompressed(file));
  EXPECT_EQ(PBcfputc(file, 'x'), 'x');
  EXPECT_EQ(PBcfclose(file), 0);
  EXPECT_EQ(directory.read("f"), "x");
}

TEST(Cio, RefusesWhatItCannotOpen) {
  const TempDir directory;
  EXPECT_EQ(PBcfopen(directory.path("new"), 3), -2);
  EXPECT_EQ(takePost(), "Bad cfopen flag");
  for (const int flag : {kCfRead, kCfUpdate}) {
    errno = 0;
    EXPECT_EQ(PBcfopen(directory.path("missing"), flag), -2);
    EXPECT_EQ(takePost(), "could not open file " + directory.path("missing"));
    EXPECT_FALSE(fileExists(directory.path("missing")));
    errno = 0;
  }
}

TEST(Cio, RefusesEveryUseOfABadDescriptor) {
  const TempDir directory;
  const int closed = PBcfopen(directory.path("file"), kCfNew);
  EXPECT_EQ(PBcfclose(closed), 0);
  for (const int bad : {-1, closed, 100000}) {
    char byte = 0;
    const std::vector<std::int64_t> results = {PBcfread(bad, &byte, 1),
                                               PBcfwrite(bad, &byte, 1),
                                               PBcfseek(bad, 0, SEEK_SET),
                                               PBcftell(bad),
                                               PBcfgetc(bad),
                                               PBcfputc(bad, 0),
                                               PBcfflush(bad),
                                               PBcftruncate(bad, 0),
                                               PBcfsize(bad),
                                               PBcfdiscard(bad),
                                               PBcfclose(bad),
                                               PBcfscanf(bad, "", {})};
    EXPECT_EQ(results, std::vector<std::int64_t>(results.size(), -2));
    EXPECT_EQ(PBerrorCount(), static_cast<int>(results.size()));
    EXPECT_EQ(takePost(), "Bad cfile descriptor");
  }
}

TEST(Cio, KeepsFilesApartAndUsesFreedDescriptorsAgain) {
  const TempDir directory;
  const int a = PBcfopen(directory.path("a"), kCfNew);
  const int b = PBcfopen(directory.path("b"), kCfNew);
  EXPECT_EQ(PBcfputc(a, 'a'), 'a');
  EXPECT_EQ(PBcfputc(b, 'b'), 'b');
  EXPECT_EQ(PBcfclose(a), 0);
  EXPECT_EQ(PBcfopen(directory.path("a"), kCfRead), a);
  EXPECT_EQ(PBcfgetc(a), 'a');
  constexpr std::int64_t kFar = 5000000000;  // beyond four gigabytes
  EXPECT_EQ(PBcfseek(b, kFar, SEEK_SET), 0);
  EXPECT_EQ(PBcfputc(b, 'x'), 'x');
  EXPECT_EQ(PBcftell(b), kFar + 1);
  EXPECT_EQ(PBcfseek(b, -1, SEEK_END), 0);
  EXPECT_EQ(PBcfgetc(b), 'x');
  EXPECT_EQ(PBcfclose(a), 0);
  EXPECT_EQ(PBcfclose(b), 0);
}

TEST(Cio, WhatAFullDiskRefusedArrivesOnceThereIsRoom) {
  const TempDir directory;
  FaultPlatform faults;
  faults.setDiskSpace(10);
  const int file = PBcfopenPlain(directory.path("file"), kCfNew);
  const std::string small(100, 'x');
  const std::string large(70000, 'y');
  EXPECT_EQ(PBcfwrite(file, small.data(), small.size()), 100);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(PBcfflush(file), -2);
    EXPECT_EQ(errno, ENOSPC);
  }
  EXPECT_EQ(PBcfwrite(file, large.data(), large.size()), -2);
  EXPECT_EQ(PBcfsize(file), 100);
  faults.freeDiskSpace();
  EXPECT_EQ(PBcfwrite(file, large.data(), large.size()), 70000);
  faults.setDiskSpace(0);
  EXPECT_EQ(PBcfputc(file, 'x'), 'x');
  EXPECT_EQ(PBcfclose(file), -2);  // what never arrived
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(directory.read("file"), small + large);
}

TEST(Cio, ADiscardedFileIsGone) {
  const TempDir directory;
  FaultPlatform faults;
  faults.setDiskSpace(0);
  const int file = PBcfopen(directory.path("file"), kCfNew);
  EXPECT_EQ(PBcfputc(file, 'x'), 'x');
  EXPECT_EQ(PBcfdiscard(file), 0);
  EXPECT_FALSE(fileExists(directory.path("file")));
  EXPECT_EQ(PBcfdiscard(file), -2);
  PBdiscardErrors();
}

TEST(Cio, AFailedReadIsNoEndOfFile) {
  const TempDir directory;
  const int file = PBcfopen(directory.write("file", "12"), kCfRead);
  std::int32_t number = 0;
  char bytes[100];
  FaultPlatform faults;
  faults.failFileCall(1);
  EXPECT_EQ(PBcfseek(file, 1, SEEK_SET), 0);
  EXPECT_EQ(PBcfread(file, bytes, sizeof bytes), -2);  // past the buffer
  EXPECT_EQ(PBcfseek(file, 0, SEEK_SET), 0);
  faults.failFileCall(1);
  EXPECT_EQ(PBcfgetc(file), -2);
  faults.failFileCall(1);
  EXPECT_EQ(PBcfscanf(file, "%d", {&number}), -2);
  EXPECT_EQ(PBcfputc(file, 'x'), -2);
  PBcfclose(file);
}

class ScanTest : public testing::Test {
 protected:
  void open(std::string_view content) { file_ = PBcfopen(directory_.write("f", content), kCfRead); }
  ~ScanTest() override {
    PBcfclose(file_);
    PBdiscardErrors();
  }
  TempDir directory_;
  int file_ = -1;
  std::int32_t number_ = 0;
  std::int64_t wide_ = 0;
  std::string word_;
};

TEST_F(ScanTest, FillsTargetsUpToTheFirstMismatch) {
  open("LABEL 2, -9000000000\n+7end  word 99999999999 tail");
  EXPECT_EQ(PBcfscanf(file_, "%s %d,%d", {&word_, &number_, &wide_}), 3);
  EXPECT_EQ(word_, "LABEL");
  EXPECT_EQ(number_, 2);
  EXPECT_EQ(wide_, -9000000000);
  EXPECT_EQ(PBcfscanf(file_, "%d enough %s", {&number_, &word_}), 1);
  EXPECT_EQ(number_, 7);
  EXPECT_EQ(PBcfgetc(file_), 'd');                         // what didn't match is still there
  EXPECT_EQ(PBcfscanf(file_, " word %d", {&number_}), 0);  // too large
  EXPECT_EQ(number_, 7);
  EXPECT_EQ(PBcfscanf(file_, "%s %d", {&word_, &number_}), 1);
  EXPECT_EQ(word_, "tail");
  EXPECT_EQ(PBcfscanf(file_, " %s", {&word_}), -1);
}

TEST_F(ScanTest, RefusesUnknownFormsBeforeReading) {
  open("12 34");
  EXPECT_EQ(PBcfscanf(file_, "%d %x", {&number_, &number_}), -2);
  EXPECT_EQ(takePost(), "Bad cfscanf format");
  for (const char* format : {"%d %s", "%", "%d %d %d", "%d", "%5d %d"}) {
    EXPECT_EQ(PBcfscanf(file_, format, {&number_, &wide_}), -2) << format;
  }
  EXPECT_EQ(PBcftell(file_), 0);
}

}  // namespace
