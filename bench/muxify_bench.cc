// Muxify of degree 2 at full size: every signal becomes two, every two rows one.
//
//   muxify_bench [ROWS [SIGNALS [DEGREE]]]     default: 1000000 rows, 64 signals, degree 2

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "base/temp_directory.h"
#include "conditioner/muxify.h"
#include "conditioner/run.h"
#include "pattern_load.h"

namespace {

void muxifyOnce(const std::string& source, const std::string& destination, int degree) {
  PVBregion src;
  src.pvbName = source;
  PVBregion dest;
  dest.pvbName = destination;
  run.reportStream = std::fopen("/dev/null", "w");
  const bool done = muxify(src, dest, degree) == 0 && PBerrCount() == 0;
  if (!done) PBerrPrint(stderr);
  check(done, "muxify");
}

void measureOne(const std::string& directory, const Load& load, int degree, bool packed) {
  const std::string source = directory + "/source";
  const std::string destination = directory + "/destination";
  std::filesystem::create_directories(source);
  measure(packed, [&] { appendPvb(source, load); });
  const Measured measured = measure(packed, [&] { muxifyOnce(source, destination, degree); });
  std::printf("  %-7s %8.3f s  %10.0f rows/s  %7.1f MB peak  %7.1f MB on disk\n",
              packed ? "packed" : "plain", measured.cpuSeconds, load.rows / measured.cpuSeconds,
              measured.megabytes, diskMegabytes(destination));
  std::filesystem::remove_all(directory);
}

}  // namespace

int main(int argc, char** argv) {
  PBsetTempDirectory("/tmp");
  const auto number = [&](int place, int otherwise) {
    return argc > place ? std::atoi(argv[place]) : otherwise;
  };
  const Load load = {static_cast<std::uint32_t>(number(1, 1000000)), number(2, 64)};
  const int degree = number(3, kMinMuxDegree);
  const std::string directory = PBtempDirectory() + "/muxify_bench." + std::to_string(getpid());
  std::printf("%u rows, %d signals, degree %d (CPU seconds, peak memory)\n", load.rows,
              load.signals, degree);
  for (const bool packed : {true, false}) measureOne(directory, load, degree, packed);
  return 0;
}
