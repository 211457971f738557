#ifndef PLATFORM_DRIVER_PROLOC_SPARE_NODES_H
#define PLATFORM_DRIVER_PROLOC_SPARE_NODES_H

#include <cstddef>
#include <type_traits>
#include <utility>
#include <vector>

namespace lumo::driver::proloc {

// Nodes of a std::map or std::multimap kept for reuse. The in-process stores add and remove an
// entry on every call; reusing the node saves an allocation and a free each time. The caller
// guards the map and this object with one lock.
template <typename Map>
class SpareNodes {
public:
    // Nodes kept at most: enough for the calls of a busy client in flight, small when idle.
    static constexpr std::size_t kMaxSpares = 32;

    // Inserts in a spare node when there is one. A key that a std::map holds already gets the
    // new value, as operator[] would.
    typename Map::iterator Insert(Map& map, const typename Map::key_type& key,
                                  typename Map::mapped_type value) {
        if (spares_.empty()) {
            if constexpr (kMulti) {
                return map.emplace(key, std::move(value));
            } else {
                return map.insert_or_assign(key, std::move(value)).first;
            }
        }
        auto node = std::move(spares_.back());
        spares_.pop_back();
        node.key() = key;
        node.mapped() = std::move(value);
        if constexpr (kMulti) {
            return map.insert(std::move(node));
        } else {
            auto inserted = map.insert(std::move(node));
            if (!inserted.inserted) {
                inserted.position->second = std::move(inserted.node.mapped());
                Keep(std::move(inserted.node));
            }
            return inserted.position;
        }
    }

    // Removes the entry and keeps its node; the value is destroyed at once.
    void Erase(Map& map, typename Map::iterator position) { Keep(map.extract(position)); }

    // Moves the value out of the entry, removes it and keeps its node.
    typename Map::mapped_type Take(Map& map, typename Map::iterator position) {
        auto value = std::move(position->second);
        Erase(map, position);
        return value;
    }

private:
    // A multimap's insert of a node gives the position alone.
    static constexpr bool kMulti = std::is_same_v<decltype(std::declval<Map&>().insert(
                                                      std::declval<typename Map::node_type&&>())),
                                                  typename Map::iterator>;

    void Keep(typename Map::node_type node) {
        if (spares_.size() < kMaxSpares) {
            node.mapped() = typename Map::mapped_type{};
            spares_.push_back(std::move(node));
        }
    }

    std::vector<typename Map::node_type> spares_;
};

}  // namespace lumo::driver::proloc

#endif
