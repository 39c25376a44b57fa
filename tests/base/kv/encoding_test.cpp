// The binary encoding of random nested tables, beside an encoder and a decoder of its own over a plain model.
#include <random>
#include <variant>

#include "base/kv/kv_fixture.hpp"

namespace {

struct Member;
struct Node {
    std::variant<int, long, Bytes, std::vector<int>, std::vector<Member>> content;
    bool operator==(const Node &other) const;
};
struct Member {
    std::variant<Bytes, unsigned long> key;
    Node node;
    bool operator==(const Member &) const = default;
};
bool Node::operator==(const Node &other) const { return content == other.content; }

Bytes big_endian(unsigned long number, int width) {
    Bytes b;
    while (width--) b += static_cast<char>(number >> 8 * width);
    return b;
}

Bytes encoded(const Node &node) {
    switch (node.content.index()) {
    case 0:
        return "\x05" + big_endian(static_cast<unsigned>(std::get<0>(node.content)), 4);
    case 1:
        return "\x07\x08" + big_endian(static_cast<unsigned long>(std::get<1>(node.content)), 8);
    case 2:
        return "\x13" + big_endian(std::get<2>(node.content).size(), 4) + std::get<2>(node.content);
    case 3: {
        Bytes b = "\x17" + big_endian(std::get<3>(node.content).size(), 4);
        for (int element : std::get<3>(node.content)) b += big_endian(static_cast<unsigned>(element), 4);
        return b;
    }
    default: {
        const auto &members = std::get<4>(node.content);
        Bytes b = "\x20" + Bytes(1, '\0') + big_endian(members.size(), 4);
        for (const auto &[key, member] : members) {
            if (const auto *text = std::get_if<Bytes>(&key))
                b += "\x64" + big_endian(text->size(), 2) + *text;
            else
                b += "\x12\x08" + big_endian(std::get<unsigned long>(key), 8);
            b += encoded(member);
        }
        return b;
    }
    }
}

// Takes one value from the front of the bytes.
class Decoder {
    const Bytes &m_bytes;
    std::size_t m_at = 0;

    unsigned long number(int width) {
        unsigned long n = 0;
        while (width--) n = n << 8 | static_cast<unsigned char>(m_bytes.at(m_at++));
        return n;
    }
    Bytes text(std::size_t n) {
        m_at += n;
        return m_bytes.substr(m_at - n, n);
    }

public:
    explicit Decoder(const Bytes &bytes) : m_bytes(bytes) {}
    bool at_end() const { return m_at == m_bytes.size(); }
    Node value() {
        switch (number(1)) {
        case 0x05:
            return {static_cast<int>(number(4))};
        case 0x07:
            return {static_cast<long>((number(1), number(8)))};
        case 0x13:
            return {text(number(4))};
        case 0x17: {
            std::vector<int> elements(number(4));
            for (int &element : elements) element = static_cast<int>(number(4));
            return {elements};
        }
        default: {
            std::vector<Member> members((number(1), number(4)));
            for (auto &[key, member] : members) {
                if (number(1) == 0x64)
                    key = text(number(2));
                else
                    key = (number(1), number(8));
                member = value();
            }
            return {members};
        }
        }
    }
};

Node random_node(std::mt19937 &random, int depth) {
    switch (depth == 0 ? random() % 4 : random() % 6) {
    case 0:
        return {static_cast<int>(random())};
    case 1:
        return {static_cast<long>(random()) << 31};
    case 2:
        return {Bytes(random() % 40, static_cast<char>(random()))};
    case 3:
        return {std::vector<int>(random() % 5, static_cast<int>(random()))};
    default: {
        std::vector<Member> members;
        for (unsigned i = random() % 8; i > 0; --i) {
            Member member{i * 3ul + 1, random_node(random, depth - 1)};
            if (random() % 3) member.key = std::to_string(i) + Bytes(random() % 30, 'x');
            members.push_back(member);
        }
        return {members};
    }
    }
}

void build(const Node &node, Tq4_value v) {
    if (const auto *n = std::get_if<int>(&node.content)) return (*v)->SetInt(v, *n);
    if (const auto *n = std::get_if<long>(&node.content)) return (*v)->SetLong(v, *n);
    if (const auto *t = std::get_if<Bytes>(&node.content))
        return (*v)->SetString(v, t->data(), static_cast<int>(t->size()));
    if (const auto *a = std::get_if<std::vector<int>>(&node.content))
        return (*v)->SetIntArray(v, a->data(), static_cast<int>(a->size()));
    (*v)->Init(v, Tq4_value_Table);
    for (const auto &[key, member] : std::get<4>(node.content)) {
        const auto *text = std::get_if<Bytes>(&key);
        build(member, text ? (*v)->InsertS(v, text->c_str()) : (*v)->InsertI(v, std::get<unsigned long>(key)));
    }
}

TEST(Encoding, OfRandomNestedTablesIsWhatOthersWriteAndRead) {
    std::mt19937 random(11);
    for (int round = 0; round < 300; ++round) {
        const Node node = random_node(random, 4);
        Value v = new_value(), back = new_value();
        build(node, v.get());
        const Bytes wire = encoded(node);
        ASSERT_EQ(dump(v), wire);
        Decoder decoder(wire);
        ASSERT_TRUE(decoder.value() == node && decoder.at_end());
        ASSERT_EQ(import(back, wire), static_cast<int>(wire.size()));
        EXPECT_TRUE(Tq4_object_Equal(v.get(), back.get()));
    }
}

} // namespace
