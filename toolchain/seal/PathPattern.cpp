#include "toolchain/seal/private/PathPattern.h"

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <utility>

#include "toolchain/common/Messages.h"
#include "toolchain/seal/private/PatternSyntax.h"

namespace toolchain {

namespace {

constexpr std::size_t kMostStates = 1024;
/// Of a deterministic automaton.
constexpr std::size_t kMostRows = 64;

enum Flags : std::uint8_t {
  /// A match ends here; or it does when the path does.
  kAccepts = 1,
  kAcceptsAtEnd = 2,
  /// No path that leads here matches.
  kIsDead = 4,
};

/// States that the part takes at most with its repetitions written out, but no more than
/// `kMostStates`.
std::size_t costOf(const PatternPart& part) {
  std::size_t cost = part.parts.empty() ? 1 : 0;
  for (const PatternPart& each : part.parts) {
    cost += costOf(each) + (part.kind == PatternPart::Kind::choice ? 1 : 0);
  }
  if (part.kind == PatternPart::Kind::repetition) {
    const std::size_t copies = part.most ? *part.most : std::max(part.least, 1U);
    cost = copies * (cost + 1) + 1;
  }
  return std::min(cost, kMostStates);
}

}  // namespace

/// Builds a pattern's states, and follows them.
class PatternAutomaton {
 public:
  using State = PathPattern::State;
  using Node = PathPattern::Node;
  using Kind = Node::Kind;

  /// A set of states that wait for a byte.
  class Front {
   public:
    explicit Front(const PathPattern& pattern)
        : pattern_(pattern), marks_(pattern.states_.size(), 0) {}

    void clear() {
      waiting.clear();
      hasMatch = false;
      ++round_;
    }
    /// This state and whatever is reached from it without a byte.
    void add(State state, bool isAtStart, bool isAtEnd) {
      reached_.push_back(state);
      while (!reached_.empty()) {
        const State each = reached_.back();
        reached_.pop_back();
        if (std::exchange(marks_[each], round_) == round_) continue;
        const Node& node = pattern_.states_[each];
        if (node.kind == Kind::bytes) waiting.push_back(each);
        if (node.kind == Kind::match) hasMatch = true;
        if (node.kind == Kind::fork || (node.kind == Kind::start && isAtStart) ||
            (node.kind == Kind::end && isAtEnd)) {
          reached_.push_back(node.next);
        }
        if (node.kind == Kind::fork) reached_.push_back(node.other);
      }
    }
    /// Where a byte leads from the states in `before`; a match may begin after any byte.
    void advance(const std::vector<State>& before, unsigned char byte, bool isAtEnd) {
      clear();
      for (const State state : before) {
        const Node& node = pattern_.states_[state];
        if (pattern_.sets_[node.other].test(byte)) add(node.next, false, isAtEnd);
      }
      add(pattern_.first_, false, isAtEnd);
    }

    std::vector<State> waiting;
    bool hasMatch = false;

   private:
    const PathPattern& pattern_;
    std::vector<std::uint32_t> marks_;
    std::uint32_t round_ = 1;
    std::vector<State> reached_;
  };

  explicit PatternAutomaton(PathPattern& pattern) : pattern_(pattern) {}

  void build(const PatternPart& whole) {
    pattern_.first_ = build(whole, add({.kind = Kind::match}));
  }

  /// Leaves the pattern without it when it would be large.
  void makeDeterministic() {
    sortBytes();
    if (!addRows()) {
      pattern_.rows_.clear();
      pattern_.accepts_.clear();
    }
  }

 private:
  /// A row is known by its states, sorted, and its flags.
  using Row = std::pair<std::vector<State>, std::uint8_t>;

  State add(const Node& node) {
    pattern_.states_.push_back(node);
    return static_cast<State>(pattern_.states_.size() - 1);
  }

  State build(const PatternPart& part, State next) {
    switch (part.kind) {
      case PatternPart::Kind::bytes:
        pattern_.sets_.push_back(part.bytes);
        return add({Kind::bytes, next, static_cast<State>(pattern_.sets_.size() - 1)});
      case PatternPart::Kind::start:
        return add({Kind::start, next});
      case PatternPart::Kind::end:
        hasEnd_ = true;
        return add({Kind::end, next});
      case PatternPart::Kind::sequence:
        for (auto each = part.parts.rbegin(); each != part.parts.rend(); ++each) {
          next = build(*each, next);
        }
        return next;
      case PatternPart::Kind::choice: {
        State first = build(part.parts.back(), next);
        for (std::size_t i = part.parts.size() - 1; i > 0; --i) {
          first = add({Kind::fork, build(part.parts[i - 1], next), first});
        }
        return first;
      }
      case PatternPart::Kind::repetition:
        return buildRepetition(part, next);
    }
    return next;
  }

  State buildRepetition(const PatternPart& part, State next) {
    const PatternPart& inner = part.parts.front();
    unsigned fixed = part.least;
    State first = next;
    if (!part.most) {
      const State loop = add({Kind::fork, next, next});
      pattern_.states_[loop].next = build(inner, loop);
      first = fixed > 0 ? pattern_.states_[loop].next : loop;
      if (fixed > 0) --fixed;
    } else {
      for (unsigned i = part.least; i < *part.most; ++i) {
        first = add({Kind::fork, build(inner, first), next});
      }
    }
    for (; fixed > 0; --fixed) first = build(inner, first);
    return first;
  }

  /// Bytes that no set of the pattern tells apart are of one class.
  void sortBytes() {
    std::vector<std::uint8_t>& classOf = pattern_.classOf_;
    classOf.assign(256, 0);
    examples_.assign(1, 0);
    for (const auto& set : pattern_.sets_) {
      // Of each class the bytes that are in the set on another side than the first one leave it.
      std::array<std::uint8_t, 256> leaving{};
      for (unsigned byte = 0; byte < 256; ++byte) {
        const std::uint8_t before = classOf[byte];
        if (set.test(byte) == set.test(examples_[before])) continue;
        if (leaving[before] == 0) {
          leaving[before] = static_cast<std::uint8_t>(examples_.size());
          examples_.push_back(static_cast<unsigned char>(byte));
        }
        classOf[byte] = leaving[before];
      }
    }
    pattern_.classCount_ = examples_.size();
  }

  bool addRows() {
    Front front(pattern_);
    front.add(pattern_.first_, true, true);
    const bool matchesEmpty = front.hasMatch;
    front.clear();
    front.add(pattern_.first_, true, false);
    rowOf(front, matchesEmpty);
    for (std::size_t row = 0; row < rows_.size(); ++row) {
      const std::vector<State> before = rows_[row]->first;
      bool staysHere = true;
      for (const unsigned char byte : examples_) {
        bool matchesAtEnd = false;
        if (hasEnd_) {
          front.advance(before, byte, true);
          matchesAtEnd = front.hasMatch;
        }
        front.advance(before, byte, false);
        const std::size_t next = rowOf(front, matchesAtEnd);
        if (rows_.size() > kMostRows) return false;
        pattern_.rows_.push_back(static_cast<std::uint8_t>(next));
        if (next != row) staysHere = false;
      }
      std::uint8_t flags = rows_[row]->second;
      if (staysHere && flags == 0) flags = kIsDead;
      pattern_.accepts_.push_back(flags);
    }
    return true;
  }

  std::size_t rowOf(const Front& front, bool matchesAtEnd) {
    Row row{front.waiting, 0};
    std::sort(row.first.begin(), row.first.end());
    if (front.hasMatch) row.second |= kAccepts;
    if (matchesAtEnd) row.second |= kAcceptsAtEnd;
    const auto [found, isNew] = numbers_.try_emplace(std::move(row), rows_.size());
    if (isNew) rows_.push_back(&found->first);
    return found->second;
  }

  PathPattern& pattern_;
  bool hasEnd_ = false;
  /// A byte of each class.
  std::vector<unsigned char> examples_;
  std::map<Row, std::size_t> numbers_;
  std::vector<const Row*> rows_;
};

Result<PathPattern> PathPattern::compile(std::string_view text) {
  const auto whole = parsePattern(text);
  if (!whole) return whole.error();
  if (costOf(*whole) >= kMostStates) return failure("it is too complex");
  PathPattern pattern;
  PatternAutomaton automaton(pattern);
  automaton.build(*whole);
  automaton.makeDeterministic();
  return pattern;
}

bool PathPattern::matches(std::string_view path) const {
  return rows_.empty() ? matchesByStates(path) : matchesByRows(path);
}

bool PathPattern::matchesByRows(std::string_view path) const {
  std::size_t row = 0;
  for (const char c : path) {
    if ((accepts_[row] & (kAccepts | kIsDead)) != 0) break;
    row = rows_[row * classCount_ + classOf_[static_cast<unsigned char>(c)]];
  }
  return (accepts_[row] & (kAccepts | kAcceptsAtEnd)) != 0;
}

bool PathPattern::matchesByStates(std::string_view path) const {
  PatternAutomaton::Front front(*this);
  std::vector<State> before;
  front.add(first_, true, path.empty());
  for (std::size_t i = 0; i < path.size() && !front.hasMatch; ++i) {
    before.swap(front.waiting);
    front.advance(before, static_cast<unsigned char>(path[i]), i + 1 == path.size());
  }
  return front.hasMatch;
}

}  // namespace toolchain
