// A string under test, with its text as a std::string.
#pragma once

#include "base/string/string.hpp"
#include "support/test.hpp"

struct StringFixture : testing::Test {
    Tq4_string s = static_cast<Tq4_string>(Tq4_string_oitf->Create(nullptr));

    ~StringFixture() override { Tq4_string_oitf->Delete(s); }

    std::string text() const { return {(*s)->c_str(s), static_cast<size_t>((*s)->length(s))}; }
    void set(const std::string &text) { (*s)->Memcpy(s, text.data(), text.size()); }
};
