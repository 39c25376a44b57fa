// The example in docs/wire-formats.md is what the library writes.
#include "base/kv/kv_fixture.hpp"

#include <fstream>
#include <sstream>

namespace {

TEST(WireFormats, TheWorkedExampleIsWhatIsWritten) {
    std::ifstream page(TQ4_WIRE_FORMATS);
    Bytes hex, line, word;
    while (std::getline(page, line)) {
        std::istringstream words(line.starts_with("    ") ? line : "");
        // Two hexadecimal digits a word, up to the words that explain them.
        while (words >> word && word.size() == 2 && word.find_first_not_of("0123456789abcdef") == word.npos)
            hex += word;
    }
    Value v = new_value();
    (*(*v)->InsertS(v.get(), "id"))->SetInt((*v)->InsertS(v.get(), "id"), 7);
    (*v)->SetSS(v.get(), "name", "Ada");
    (*(*v)->InsertS(v.get(), "sub"))->Init((*v)->InsertS(v.get(), "sub"), Tq4_value_Table);
    EXPECT_EQ(from_hex(hex.c_str()), dump(v)) << hex;
}

} // namespace
