#include "Page.hpp"

#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>
#include <stdexcept>

namespace TestSupport {

namespace {

std::vector<std::string> firstGroups(std::string_view text, const std::string& pattern) {
    const std::string all(text);
    const std::regex expression(pattern);
    std::vector<std::string> found;
    for (std::sregex_iterator match(all.begin(), all.end(), expression), end; match != end; ++match)
        found.push_back((*match)[1]);
    return found;
}

std::string trimmed(const std::string& text) {
    return std::regex_replace(text, std::regex("^ +| +$"), "");
}

Page::Row cellsOf(const std::string& line) {
    Page::Row cells;
    std::istringstream rest(line.substr(line.find('|') + 1));
    for (std::string cell; std::getline(rest, cell, '|');)
        cells.push_back(trimmed(cell));
    return cells;
}

bool isRow(const std::string& line) {
    return trimmed(line).starts_with('|');
}

}  // namespace

Page::Page(std::string_view name) {
    std::ifstream file(std::string(KESTRIN_DOCS "/").append(name));
    if (!file) throw std::runtime_error("no page " + std::string(name));
    text_.assign(std::istreambuf_iterator<char>(file), {});
}

std::vector<Page::Row> Page::tableBelow(std::string_view line) const {
    std::istringstream lines(text_);
    std::string each;
    while (each != line)
        if (!std::getline(lines, each)) throw std::runtime_error("no line " + std::string(line));
    while (std::getline(lines, each) && !isRow(each)) {
    }
    std::getline(lines, each);  // the rule below the head
    std::vector<Row> rows;
    while (std::getline(lines, each) && isRow(each))
        rows.push_back(cellsOf(each));
    if (rows.empty()) throw std::runtime_error("no table below " + std::string(line));
    return rows;
}

std::vector<std::string> Page::jsonBlocks() const {
    return firstGroups(text_, "```json\n([^`]*)```");
}

std::vector<std::string> codeIn(std::string_view text) {
    return firstGroups(text, "`([^`]+)`");
}

std::vector<std::string> quotedIn(std::string_view text) {
    return firstGroups(text, "\"([^\"]*)\"");
}

}  // namespace TestSupport
