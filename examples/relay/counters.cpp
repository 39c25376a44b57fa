#include "counters.hpp"

#include <utility>

Counters::Counters(std::string file) : m_file(std::move(file)) {
    const Object<Tq4_file> saved(Tq4_file_oitf);
    if (saved->Open(saved, m_file.c_str(), Tq4_file_read))
        if (const char *line = saved->ReadLine(saved, 1, 0)) m_value->Json_decode(m_value, line, -1);
    if (m_value->Type(m_value) != Tq4_value_Table) m_value->Init(m_value, Tq4_value_Table);
    m_table = m_value->GetValueTable(m_value);
}

void Counters::Add(const char *name, long n) {
    const std::lock_guard guard(m_mutex);
    const long before = static_cast<long>((*m_table)->BaseS(m_table, name));
    (*m_table)->SetSI(m_table, name, before + n);
}

std::string Counters::Json() {
    const std::lock_guard guard(m_mutex);
    const Object<Tq4_string> text(Tq4_string_oitf);
    return m_value->Json_encode(m_value, text);
}

bool Counters::Save() {
    const std::string text = Json() + "\n", beside = m_file + ".new";
    const Object<Tq4_file> file(Tq4_file_oitf);
    return file->Open(file, beside.c_str(), Tq4_file_write | Tq4_file_create | Tq4_file_truncate) &&
           file->Write(file, text.data(), text.size()) == static_cast<long>(text.size()) && file->Close(file) &&
           Tq4_file_api->Rename(beside.c_str(), m_file.c_str());
}
