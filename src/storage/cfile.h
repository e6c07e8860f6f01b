#pragma once

// Compressed files: a stream of bytes with random access, kept in packed blocks of
// 65,536 bytes. The blocks are pages of a variable page file; a small cache holds
// unpacked ones, so that small reads and writes near each other cost little.
//
// Page 0 is the header, all numbers most significant byte first:
//
//   OFFSET  SIZE  FIELD
//      0      4   marker 0xFFFFFFFF
//      4      4   tableSize
//      8      8   length of the file in bytes
//     16    4 * tableSize   the page of each block, 0xFFFFFFFF for one that was
//                           never written and reads as zeros
//
// Bytes past the length read as zeros should the file grow again. A call that
// fails gives -2 after a post under "cfile" or "unzip"; nothing that was written
// is lost by it: after a full disk has room again a flush makes the file whole.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "storage/block_coder.h"
#include "storage/vpage.h"

// Whether a file is a compressed one, by its first bytes; none with errno set when
// it can't be read. Never posts.
std::optional<bool> isCompressedFile(const std::string& path);

// At most 256 at once. The functions are those of PlainFile.
class CompressedFile {
 public:
  // Null after a post.
  static std::unique_ptr<CompressedFile> create(const std::string& path);
  static std::unique_ptr<CompressedFile> open(const std::string& path, bool writable);
  ~CompressedFile();
  CompressedFile(const CompressedFile&) = delete;
  CompressedFile& operator=(const CompressedFile&) = delete;

  std::int64_t read(char* data, std::size_t size);
  std::int64_t write(const char* data, std::size_t size);
  int seek(std::int64_t offset, int whence);
  std::int64_t tell() const { return position_; }
  int getc();
  void ungetc() { --position_; }
  int flush();
  int truncate(std::int64_t size);
  std::int64_t size() const { return length_; }
  int close();
  int discard();

  // Unpacks every block; a line for each fault, and their count.
  int check(const std::function<void(std::string_view)>& fault);

 private:
  // Unpacked as far as it was asked for; a dirty one is whole.
  struct Block {
    std::int64_t number = -1;  // -1: holds nothing
    bool dirty = false;
    std::int64_t ready = 0;  // bytes of `data` that are unpacked
    Unzipper packed;
    std::vector<std::uint8_t> data = std::vector<std::uint8_t>(kZipBlockSize);
  };

  CompressedFile(VPageFilePtr store, bool writable);
  bool loadHeader();
  bool takeTable(const std::uint8_t* header, std::int64_t size);
  bool writeHeader();
  Block* findBlock(std::int64_t number, std::int64_t end);
  Block* cacheBlock(std::int64_t number);
  Block* freeBlock();
  bool startBlock(Block& block);
  bool unpackBlock(Block& block, std::int64_t end);
  bool storeBlock(Block& block);
  void* placeBlock(std::uint32_t& page, std::size_t size);
  bool storeAll();
  bool growTable(std::int64_t number);
  bool dropBlock(std::int64_t number);
  bool clearTail();

  VPageFilePtr store_;
  bool writable_;
  std::size_t cacheSize_;
  bool headerDirty_ = false;
  bool tailClear_ = false;  // the last block is zero behind the length
  std::int64_t length_ = 0;
  std::int64_t position_ = 0;
  std::vector<std::uint32_t> table_;  // its size is tableSize
  std::list<Block> cache_;            // most recently used first
};
