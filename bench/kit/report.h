#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// What a program measured, as one JSON object of whole numbers and lists of them.
class Report
{
public:
    Report& add(const std::string& name, int64_t value);
    Report& add(const std::string& name, const std::vector<int64_t>& values);
    /// Writes it to standard output.
    void print() const;

private:
    void addText(const std::string& name, const std::string& text);

    std::string m_text;
};
