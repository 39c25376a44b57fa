// tree.hpp: what a configuration holds: sections inside sections, keys with values, and the comments before each.
//
// Items, sections and chains live in pools of the tree, so that nothing recurses when a tree of any depth goes. A chain
// is the sections of one name under one parent, in file order. The texts of a file stay in the blocks that it was read
// into, which the tree keeps; a text written later owns its bytes. Once a section has more than a few items or chains,
// it finds them through an index over their names. So loading and looking up cost the same in a section of any size.
// Removing costs a walk over the names beside it.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <deque>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

// The longest line that is read, without its line feed.
constexpr std::size_t Tq4_config_line_limit = 2048;

// A NUL-terminated text: bytes of the tree's blocks, or its own.
class Tq4_config_text {
public:
    Tq4_config_text() = default;
    static Tq4_config_text Borrowed(std::string_view bytes) { return {bytes.data(), bytes.size(), false}; }
    static Tq4_config_text Owned(std::string_view bytes) {
        char *copy = new char[bytes.size() + 1];
        std::memcpy(copy, bytes.data(), bytes.size());
        copy[bytes.size()] = 0;
        return {copy, bytes.size(), true};
    }
    Tq4_config_text(Tq4_config_text &&other) noexcept { swap(other); }
    Tq4_config_text &operator=(Tq4_config_text &&other) noexcept {
        swap(other);
        return *this;
    }
    ~Tq4_config_text() {
        if (m_owned) delete[] m_data;
    }

    const char *c_str() const { return m_data; }
    std::string_view view() const { return {m_data, m_size}; }

private:
    Tq4_config_text(const char *data, std::size_t size, bool owned)
        : m_data(data), m_size(static_cast<uint32_t>(size)), m_owned(owned) {}
    void swap(Tq4_config_text &other) {
        std::swap(m_data, other.m_data);
        std::swap(m_size, other.m_size);
        std::swap(m_owned, other.m_owned);
    }

    const char *m_data = "";
    uint32_t m_size = 0; // without the NUL
    bool m_owned = false;
};

// Some of the tree's comment lines.
struct Tq4_config_comments {
    uint32_t first = 0, count = 0;
};

// A key with its value.
struct Tq4_config_item {
    Tq4_config_text m_key, m_value;
    Tq4_config_text m_comment_suffix; // what follows the value: in quotes anything, else from "//" on
    Tq4_config_comments m_comment;
    uint32_t m_hash = 0;        // of the key
    uint32_t m_number : 31 = 0; // grows with every item of the tree
    uint32_t m_quoted : 1 = 0;

    std::string_view name() const { return m_key.view(); }
};
static_assert(sizeof(Tq4_config_item) <= 64, "loading writes one for each key");

// Entries in order, found by their names, which differ. The entries are borrowed. The index has open addressing over
// the hashes, three quarters full at most; removing an entry moves up all places behind it.
template <class Entry> class Tq4_config_names {
    static constexpr std::size_t Indexed_from = 12; // fewer are found as fast without

    struct Slot {
        uint32_t hash;
        uint32_t place; // in m_order, counted from 1; 0 when free
    };
    std::vector<Entry *> m_order;
    std::vector<Slot> m_slots; // a power of two, none while there are few entries

    void Place(std::size_t i) {
        const uint32_t hash = m_order[i]->m_hash;
        std::size_t at = hash & (m_slots.size() - 1);
        while (m_slots[at].place) at = (at + 1) & (m_slots.size() - 1);
        m_slots[at] = {hash, static_cast<uint32_t>(i + 1)};
    }
    void Rebuild(std::size_t slots) {
        m_slots.assign(slots, {});
        for (std::size_t i = 0; i < m_order.size(); ++i) Place(i);
    }

public:
    std::size_t size() const { return m_order.size(); }
    Entry *At(std::size_t i) const { return i < m_order.size() ? m_order[i] : nullptr; }
    Entry *Find(std::string_view name, uint32_t hash) const {
        if (m_slots.empty()) {
            for (Entry *entry : m_order)
                if (entry->m_hash == hash && entry->name() == name) return entry;
            return nullptr;
        }
        for (std::size_t at = hash & (m_slots.size() - 1); m_slots[at].place; at = (at + 1) & (m_slots.size() - 1))
            if (m_slots[at].hash == hash && m_order[m_slots[at].place - 1]->name() == name)
                return m_order[m_slots[at].place - 1];
        return nullptr;
    }
    void Add(Entry *entry) {
        m_order.push_back(entry);
        if (m_order.size() >= Indexed_from && 4 * m_order.size() > 3 * m_slots.size())
            Rebuild(std::max<std::size_t>(32, 2 * m_slots.size()));
        else if (!m_slots.empty())
            Place(m_order.size() - 1);
    }
    // Returns where it stood.
    std::size_t Remove(Entry *entry) {
        const auto at = m_order.erase(std::find(m_order.begin(), m_order.end(), entry));
        if (!m_slots.empty()) Rebuild(m_slots.size());
        return static_cast<std::size_t>(at - m_order.begin());
    }
};

struct Tq4_config_section;

// The sections of one name under one parent, at least one.
struct Tq4_config_chain {
    uint32_t m_hash = 0;                          // of the name
    std::vector<Tq4_config_section *> m_sections; // borrowed

    std::string_view name() const;
};

struct Tq4_config_section {
    Tq4_config_text m_name;
    Tq4_config_text m_comment_suffix; // what follows the header on its line
    Tq4_config_comments m_comment;
    Tq4_config_section *m_parent = nullptr; // borrowed; null for the root
    Tq4_config_chain *m_chain = nullptr;    // borrowed; the one it stands in, null for the root
    Tq4_config_names<Tq4_config_item> m_values;
    Tq4_config_names<Tq4_config_chain> m_childs;

    Tq4_config_item *Item(std::string_view key) const;
    Tq4_config_chain *Chain(std::string_view name) const;
    std::size_t Index() const; // in its chain
};

inline std::string_view Tq4_config_chain::name() const { return m_sections.front()->m_name.view(); }

uint32_t Tq4_config_hash(std::string_view name);

class Tq4_config_tree {
    // Entries that stay where they are; those given back are used again.
    template <class Entry> class Pool {
        static constexpr std::size_t Chunk_bytes = 4096;
        static constexpr std::size_t Chunk = Chunk_bytes / sizeof(Entry);

        std::vector<std::unique_ptr<Entry[]>> m_chunks;
        std::size_t m_used = Chunk; // of the last one
        std::vector<Entry *> m_free;

    public:
        Entry *Take() {
            if (!m_free.empty()) {
                Entry *entry = m_free.back();
                m_free.pop_back();
                return entry;
            }
            if (m_used == Chunk) {
                m_chunks.push_back(std::make_unique<Entry[]>(Chunk));
                m_used = 0;
            }
            return &m_chunks.back()[m_used++];
        }
        void Give(Entry *entry) {
            *entry = Entry();
            m_free.push_back(entry);
        }
    };

    Pool<Tq4_config_item> m_items;
    Pool<Tq4_config_section> m_sections;
    Pool<Tq4_config_chain> m_chains;
    std::vector<std::unique_ptr<char[]>> m_blocks;
    std::deque<std::string_view> m_comments;
    uint32_t m_item_count = 0; // ever made
    Tq4_config_section m_default;

public:
    Tq4_config_comments m_last_comments; // behind everything

    Tq4_config_tree() = default;
    Tq4_config_tree(const Tq4_config_tree &) = delete;
    Tq4_config_tree &operator=(const Tq4_config_tree &) = delete;

    Tq4_config_section &root() { return m_default; }
    const Tq4_config_section &root() const { return m_default; }

    // Room for the texts of a file, which lives as long as the tree.
    char *AddBlock(std::size_t size) {
        return m_blocks.emplace_back(std::make_unique_for_overwrite<char[]>(size)).get();
    }
    // A comment line, whose bytes live as long as the tree.
    void AddComment(std::string_view line) { m_comments.push_back(line); }
    uint32_t CommentCount() const { return static_cast<uint32_t>(m_comments.size()); }
    std::string_view Comment(std::size_t i) const { return m_comments[i]; }

    // A new item or section, the last of its parent; the hash is that of the name.
    Tq4_config_item *AddItem(Tq4_config_section &section, Tq4_config_text key, uint32_t hash);
    Tq4_config_section *AddSection(Tq4_config_section &parent, Tq4_config_text name);
    // Returns where it stood.
    std::size_t Remove(Tq4_config_section &section, Tq4_config_item *item);
    // Removes a section, not the root, with everything in it.
    void Remove(Tq4_config_section *section);
};
