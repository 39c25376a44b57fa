#include "settings.hpp"

#include <sstream>
#include <utility>

Settings::Settings(std::string file) : m_file(std::move(file)) { Reload(); }

bool Settings::Reload() {
    const Object<Tq4_config> fresh(Tq4_config_oitf);
    if (fresh->Read(fresh, m_file.c_str()) != 1 || Tq4_config_oitf->Equal(fresh, m_config)) return false;
    Tq4_config_oitf->Copy(m_config, fresh);
    return true;
}

std::string Settings::Go(const std::string &name, bool make) {
    const std::size_t dot = name.rfind('.');
    const std::string section = dot == std::string::npos ? "relay" : name.substr(0, dot);
    const std::string key = dot == std::string::npos ? name : name.substr(dot + 1);
    m_config->ToTopSection(m_config);
    std::istringstream parts(section);
    for (std::string part; std::getline(parts, part, '.');) {
        if (m_config->ToChildSection(m_config, part.c_str(), 0)) continue;
        if (!make) return "";
        m_config->AddSection(m_config, part.c_str());
        if (!m_config->ToChildSection(m_config, part.c_str(), 0)) return ""; // no name for a section
    }
    return key;
}

bool Settings::Has(const std::string &name) {
    const std::string key = Go(name, false);
    return m_config->ReadString(m_config, key.c_str(), nullptr) != nullptr;
}

std::string Settings::Get(const std::string &name, const std::string &missing) {
    const std::string key = Go(name, false);
    return m_config->ReadString(m_config, key.c_str(), missing.c_str());
}

long Settings::GetNumber(const std::string &name, long missing) {
    const std::string key = Go(name, false);
    m_config->ReadLong(m_config, key.c_str(), &missing);
    return missing;
}

bool Settings::Set(const std::string &name, const std::string &value) {
    const std::string key = Go(name, true);
    return !key.empty() && m_config->WriteString(m_config, key.c_str(), value.c_str()) &&
           m_config->Dump(m_config, m_file.c_str());
}
