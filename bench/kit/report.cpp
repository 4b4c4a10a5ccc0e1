#include "kit/report.h"

#include <cstdio>

Report& Report::add(const std::string& name, int64_t value)
{
    addText(name, std::to_string(value));
    return *this;
}

Report& Report::add(const std::string& name, const std::vector<int64_t>& values)
{
    std::string text;
    for (const int64_t value : values) {
        text += (text.empty() ? "" : ",") + std::to_string(value);
    }
    addText(name, '[' + text + ']');
    return *this;
}

void Report::print() const
{
    std::printf("{%s}\n", m_text.c_str());
}

void Report::addText(const std::string& name, const std::string& text)
{
    m_text += (m_text.empty() ? "\"" : ",\"") + name + "\":" + text;
}
