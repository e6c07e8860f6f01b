#pragma once

// What the timeplate optimizer says: its report, and what it adds to standard error, from
// construction on. Parameters go through the optimizer's own reading.

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/errors.h"
#include "base/param.h"
#include "base/temp_directory.h"

class OptimizerReport {
 public:
  OptimizerReport() : stream_(open_memstream(&text_, &size_), std::fclose) {
    tpNoticeSettings = {stream_.get(), 0};
    testing::internal::CaptureStderr();
  }
  ~OptimizerReport() {
    if (!statusTaken_) testing::internal::GetCapturedStderr();
    tpNoticeSettings = {};
    PBresetParams();
    PBsetTempDirectory("");
    PBerrClear();
    PBdiscardErrors();
    stream_.reset();
    std::free(text_);
  }
  OptimizerReport(const OptimizerReport&) = delete;
  OptimizerReport& operator=(const OptimizerReport&) = delete;

  FILE* stream() const { return stream_.get(); }
  std::string text() {
    std::fflush(stream_.get());
    return {text_, size_};
  }
  // Once.
  std::string status() {
    statusTaken_ = true;
    return testing::internal::GetCapturedStderr();
  }

 private:
  char* text_ = nullptr;
  std::size_t size_ = 0;
  std::unique_ptr<FILE, int (*)(FILE*)> stream_;
  bool statusTaken_ = false;
};

// Arguments as a program gets them.
class Arguments {
 public:
  Arguments(std::vector<std::string> texts) : texts_(std::move(texts)) {
    for (const std::string& text : texts_) words_.push_back(text.c_str());
  }
  operator ParamArguments() const { return words_; }

 private:
  std::vector<std::string> texts_;
  std::vector<const char*> words_;
};
