// Maps from numbers that share what they have in common: a map with one entry more than another costs a few nodes.
// Binary tries by the bits of the key, the highest first, without nodes of one child; so entries come in the order of their
// keys, and two maps are joined by looking only at what differs. Nodes live as long as their table and never change.
#pragma once

#include <algorithm>
#include <cstdint>
#include <deque>
#include <functional>
#include <type_traits>
#include <unordered_set>
#include <utility>

namespace vesk::compiler {

template <class Value>
class PersistentMaps {
    static_assert(std::is_trivially_copyable_v<Value> && sizeof(Value) <= 2 * sizeof(void*));

public:
    using Key = std::uint32_t;
    struct Node {
        Key key;  // of a branch: the bits above `bit`
        Key bit;  // which one the children differ in; 0 = a leaf
        union {
            struct {
                const Node *zero, *one;
            };
            Value value;
        };
    };
    // A map is the address of its top; null is the empty one.
    using Map = const Node*;

    static const Value* find(Map map, Key key) {
        while (map && map->bit) map = key & map->bit ? map->one : map->zero;
        return map && map->key == key ? &map->value : nullptr;
    }

    template <class Visit>
    static void forEach(Map map, const Visit& visit) {
        if (!map) return;
        if (!map->bit) return visit(map->key, map->value);
        forEach(map->zero, visit);
        forEach(map->one, visit);
    }

    Map with(Map map, Key key, Value value) {
        return joined(leaf(key, value), map, [](const Value& added, const Value&) { return added; });
    }

    // What either has. Where both have the key: what `combine` makes of the first's and the second's value, which a second
    // time with the second's value is itself. A part that was joined with another once is not looked through again for it:
    // of two chains side by side, each step costs what is new.
    template <class Combine>
    Map joined(Map first, Map second, const Combine& combine) {
        if (!second || first == second) return first;
        if (!first) return second;
        if (!first->bit || !second->bit) return merged(first, second, combine);
        if (takenIn_.contains({first, second})) return first;
        const Map result = merged(first, second, combine);
        takenIn_.insert({result, second});
        return result;
    }

    // The map with other values.
    template <class Change>
    Map changed(Map map, const Change& change) {
        if (!map) return nullptr;
        if (!map->bit) {
            const Value value = change(map->value);
            return value == map->value ? map : leaf(map->key, value);
        }
        return same(map, changed(map->zero, change), changed(map->one, change));
    }

private:
    // Two maps that are not empty.
    template <class Combine>
    Map merged(Map first, Map second, const Combine& combine) {
        if (!first->bit && !second->bit && first->key == second->key) {
            const Value both = combine(first->value, second->value);
            return both == first->value ? first : leaf(first->key, both);
        }
        const Key difference = first->key ^ second->key;
        const Key bit = std::max(first->bit, second->bit);
        if (difference & ~lowBits(bit)) return branch(highestBit(difference & ~lowBits(bit)), first, second);
        if (first->bit == second->bit)
            return same(first, joined(first->zero, second->zero, combine), joined(first->one, second->one, combine));
        if (first->bit > second->bit)
            return second->key & bit ? same(first, first->zero, joined(first->one, second, combine))
                                     : same(first, joined(first->zero, second, combine), first->one);
        return first->key & bit ? same(second, second->zero, joined(first, second->one, combine))
                                : same(second, joined(first, second->zero, combine), second->one);
    }

    // All bits up to this one.
    static Key lowBits(Key bit) { return bit ? bit | (bit - 1) : 0; }
    static Key highestBit(Key bits) { return Key{1} << (31 - __builtin_clz(bits)); }

    Map leaf(Key key, Value value) {
        Node& made = nodes_.emplace_back();
        made.key = key;
        made.bit = 0;
        made.value = value;
        return &made;
    }
    Map branch(Key bit, Map first, Map second) {
        Node& made = nodes_.emplace_back();
        made.key = first->key & ~lowBits(bit);
        made.bit = bit;
        const bool isBehind = first->key & bit;
        made.zero = isBehind ? second : first;
        made.one = isBehind ? first : second;
        return &made;
    }
    // A branch like another, which it is when the children are.
    Map same(Map like, Map zero, Map one) {
        if (zero == like->zero && one == like->one) return like;
        return branch(like->bit, zero, one);
    }

    using Pair = std::pair<Map, Map>;
    struct PairHash {
        std::size_t operator()(const Pair& pair) const {
            return std::hash<Map>{}(pair.first) * 31 + std::hash<Map>{}(pair.second);
        }
    };

    std::deque<Node> nodes_;
    std::unordered_set<Pair, PairHash> takenIn_;  // a part, and one that joining does not change it by
};

}  // namespace vesk::compiler
