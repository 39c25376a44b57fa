// tree: making and removing the parts of a configuration.
#include "file/ini/tree.hpp"

#include <algorithm>

// Eight bytes a step; every byte reaches all bits of the result, whose low ones choose a slot.
uint32_t Tq4_config_hash(std::string_view name) {
    constexpr uint64_t mix = 0x9E3779B97F4A7C15u;
    const char *at = name.data();
    std::size_t left = name.size();
    uint64_t hash = left, word;
    for (; left >= sizeof word; left -= sizeof word, at += sizeof word) {
        std::memcpy(&word, at, sizeof word);
        hash = (hash ^ word) * mix;
        hash ^= hash >> 32;
    }
    for (word = 0; left; --left) word = word << 8 | static_cast<unsigned char>(*at++);
    hash = (hash ^ word) * mix;
    return static_cast<uint32_t>(hash >> 32);
}

Tq4_config_item *Tq4_config_section::Item(std::string_view key) const {
    return m_values.Find(key, Tq4_config_hash(key));
}

Tq4_config_chain *Tq4_config_section::Chain(std::string_view name) const {
    return m_childs.Find(name, Tq4_config_hash(name));
}

std::size_t Tq4_config_section::Index() const {
    const auto &chain = m_chain->m_sections;
    return static_cast<std::size_t>(std::find(chain.begin(), chain.end(), this) - chain.begin());
}

Tq4_config_item *Tq4_config_tree::AddItem(Tq4_config_section &section, Tq4_config_text key, uint32_t hash) {
    Tq4_config_item *item = m_items.Take();
    item->m_hash = hash;
    item->m_number = m_item_count++ & 0x7fffffff;
    item->m_key = std::move(key);
    section.m_values.Add(item);
    return item;
}

Tq4_config_section *Tq4_config_tree::AddSection(Tq4_config_section &parent, Tq4_config_text name) {
    Tq4_config_section *section = m_sections.Take();
    section->m_name = std::move(name);
    section->m_parent = &parent;
    const uint32_t hash = Tq4_config_hash(section->m_name.view());
    Tq4_config_chain *chain = parent.m_childs.Find(section->m_name.view(), hash);
    const bool first = !chain;
    if (first) {
        chain = m_chains.Take();
        chain->m_hash = hash;
    }
    chain->m_sections.push_back(section);
    section->m_chain = chain;
    if (first) parent.m_childs.Add(chain); // which asks for its name
    return section;
}

std::size_t Tq4_config_tree::Remove(Tq4_config_section &section, Tq4_config_item *item) {
    const std::size_t place = section.m_values.Remove(item);
    m_items.Give(item);
    return place;
}

void Tq4_config_tree::Remove(Tq4_config_section *section) {
    Tq4_config_chain *chain = section->m_chain;
    chain->m_sections.erase(chain->m_sections.begin() + static_cast<std::ptrdiff_t>(section->Index()));
    if (chain->m_sections.empty()) {
        section->m_parent->m_childs.Remove(chain);
        m_chains.Give(chain);
    }
    std::vector<Tq4_config_section *> going{section};
    while (!going.empty()) {
        Tq4_config_section *each = going.back();
        going.pop_back();
        for (std::size_t i = 0; i < each->m_values.size(); ++i) m_items.Give(each->m_values.At(i));
        for (std::size_t i = 0; i < each->m_childs.size(); ++i) {
            Tq4_config_chain *inner = each->m_childs.At(i);
            going.insert(going.end(), inner->m_sections.begin(), inner->m_sections.end());
            m_chains.Give(inner);
        }
        m_sections.Give(each);
    }
}
