// Laws of the timeplate optimizer over random databases: what is driven stays the same, there
// are never more timeplates, and it comes to an end.

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <utility>

#include "support/optimize_world.h"

namespace {

// A database of inputs with random waves of few kinds, so that some of them fold. Every row
// has data for what drives, because what isn't known may become anything; without
// DoBidiMerge rows may just expect.
rc::Gen<std::string> database(int mode, bool bidi) {
  return rc::gen::exec([mode, bidi]() {
    const std::vector<std::string> waves = {
        "D",    "U",    "S",     "C",        "Z",    "P",        "D 5U",     "P 5S",    "D 5S",
        "S 5C", "P 5U", "U 10P", "D 5X 10S", "D 6S", "D 5S 15D", "D 5U 15D", "Z 5U 15Z"};
    const TrackText drives = track("m", "S", "input");
    const TrackText pulls = track("m", "U", "input");
    const TrackText expects = track("m", "X 15Q", "output");
    const TrackText does = track("m", "S 10X 15Q", "bidir");
    const std::vector<std::vector<TrackText>> ways = {{drives, expects}, {pulls, expects}, {drives},
                                                      {expects},         {does},           {pulls}};
    const std::vector<std::string> driven = {"1-", "0-", "11", "01"};
    const std::vector<std::string> any = {"1-", "0-", "11", "01", "-1", "-0"};
    std::vector<bool> mayExpect;  // of each timeplate: whether its rows may just expect
    DatabaseText text;
    text.mode(mode).signal("a", "input").signal("c", "input").signal("m", "bidir");
    const int plates = *rc::gen::inRange(2, 7);
    for (int i = 0; i < plates; ++i) {
      std::vector<TrackText> tracks = *rc::gen::elementOf(ways);
      mayExpect.push_back(!bidi && tracks.back().direction == "output");
      tracks.push_back(track("a", *rc::gen::elementOf(waves)));
      tracks.push_back(track("c", *rc::gen::elementOf(waves)));
      text.plate("t" + std::to_string(i), "20nS", tracks);
    }
    for (int row = 0; row < 24; ++row) {
      std::string states(1, *rc::gen::elementOf(std::string("01Z")));
      states += *rc::gen::elementOf(std::string("01Z"));
      const int plate = *rc::gen::inRange(0, plates);
      states += *rc::gen::elementOf(mayExpect[static_cast<std::size_t>(plate)] ? any : driven);
      text.rows(steps("t" + std::to_string(plate), {states}));
    }
    return text.text();
  });
}

std::vector<std::string> randomParameters(bool bidi) {
  std::vector<std::string> parameters;
  if (bidi) parameters.emplace_back("DoBidiMerge=yes");
  if (*rc::gen::arbitrary<bool>()) parameters.emplace_back("DoTrackOptimize=yes");
  return parameters;
}

std::vector<std::string> withRandomLimit(std::vector<std::string> parameters) {
  const int limit = *rc::gen::inRange(-4, 6);
  if (limit > 1) parameters.push_back("TPGenLimit=" + std::to_string(limit));
  return parameters;
}

class OptimizeLaws : public testing::Test, protected OptimizeWorld {
 protected:
  OptimizeLaws() : OptimizeWorld({PVBCONDITIONER_BINARY, PVB_BINARY}) {
    useShapes("S UP DXS PS DSD SD SU C CS SC PSC D U P DU UD");
  }

  // What the program did without the optimizer is in `plain`.
  void requireSame(const std::string& plain, const std::string& report,
                   std::vector<std::string> options = {}) {
    options.insert(options.begin(), {"diff", plain, "dest", "--ignore-cycles"});
    const ProgramResult same = runCompanion(options);
    if (same.exitCode != 0) RC_FAIL(same.out + same.err + report + dump(plain) + dump("dest"));
  }
  // Runs over "dest" as it is until one folds nothing, which then has changed nothing at all.
  // A run begins with an empty memo and with the waves that the one before has made, so
  // that it may fold what that one couldn't.
  void requireEnd(const std::string& plain, const std::vector<std::string>& parameters) {
    bool isFirst = true;
    for (std::ptrdiff_t left = timeplates(), before = left + 1; left < before; isFirst = false) {
      const std::string text = dump("dest");
      const Outcome outcome = optimizeAgain(parameters);
      requireSame(plain, outcome.report);
      before = std::exchange(left, timeplates());
      RC_ASSERT(left <= before);
      if (left == before) RC_ASSERT(dump("dest") == text);
      if (isFirst) RC_TAG(left == before ? "a second run changed nothing" : "it folded more");
    }
  }
};

RC_GTEST_FIXTURE_PROP(OptimizeLaws, DoesTheSameInNoMoreTimeplatesAndSettles, (bool bidi)) {
  const std::string text = *database(*rc::gen::inRange(1, 6), bidi);
  const std::vector<std::string> parameters = randomParameters(bidi);
  if (*rc::gen::arbitrary<bool>()) {
    optimizeAlone(text, parameters);
    RC_ASSERT(timeplates() <= timeplates("A"));
    return requireEnd("A", parameters);
  }
  build("A", text);
  expectDone(runOperations("merge A B destPlain"));
  const Outcome outcome = tryMerge(withRandomLimit(parameters));
  if (outcome.err.find("exceeds limit") != std::string::npos) return;
  RC_ASSERT(outcome.exitCode == 0);
  RC_ASSERT(timeplates() <= timeplates("destPlain"));
  requireSame("destPlain", outcome.report, {"--signals", "a,b,c,m"});
  requireEnd("destPlain", parameters);
}

}  // namespace
