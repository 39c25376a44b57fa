// The example in docs/wire-formats.md is what the library writes.
#include "base/kv/kv_fixture.hpp"

#include <fstream>
#include <regex>

namespace {

TEST(WireFormats, TheWorkedExampleIsWhatIsWritten) {
    std::ifstream page(TQ4_WIRE_FORMATS);
    Bytes hex, line;
    const std::regex bytes("^    ((?:[0-9a-f]{2} {1,2})+) +\\S.*");
    for (std::smatch match; std::getline(page, line);)
        if (std::regex_match(line, match, bytes)) hex += match[1];
    Value v = new_value();
    (*(*v)->InsertS(v.get(), "id"))->SetInt((*v)->InsertS(v.get(), "id"), 7);
    (*v)->SetSS(v.get(), "name", "Ada");
    (*(*v)->InsertS(v.get(), "sub"))->Init((*v)->InsertS(v.get(), "sub"), Tq4_value_Table);
    EXPECT_EQ(from_hex(hex.c_str()), dump(v)) << hex;
}

} // namespace
