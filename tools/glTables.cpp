// Makes the tables of glNames.h of the text of OpenGL's and GLX's headers, in which GLenum, GLuint
// and GLbitfield are still different types. Usage: glTables OUTPUT HEADER...
#include "tools/glExceptions.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace {

constexpr std::string_view performed[] = {
#define OPERATION(number, name, ...) #name,
#define BY_HAND OPERATION
#define UNPERFORMED(number, name, ...)
#include "wire/operations.def"
};

// ---- Text --------------------------------------------------------------------------------------

struct Define {
    std::string name;
    std::uint32_t value;
};

struct Parameter {
    std::string type, name;
};

struct Headers {
    std::vector<Define> defines;
    std::set<std::string, std::less<>> vendors; // the ends of extensions' names
    std::map<std::string, std::vector<Parameter>, std::less<>> prototypes;
};

std::string withoutComments(std::string text)
{
    for (std::size_t at = 0; (at = text.find("/*", at)) != std::string::npos;)
        text.replace(at, text.find("*/", at + 2) + 2 - at, " ");
    return text;
}

std::vector<std::string> wordsOf(std::string_view text)
{
    const auto inWord = [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
    };
    std::vector<std::string> words;
    for (auto at = text.begin(); (at = std::find_if(at, text.end(), inWord)) != text.end();) {
        const auto end = std::find_if_not(at, text.end(), inWord);
        words.emplace_back(at, end);
        at = end;
    }
    return words;
}

// "#define GL_NAME number", and the vendor of "#ifndef GL_VENDOR_extension".
void readDirective(Headers& headers, const std::string& line)
{
    const std::vector<std::string> words = wordsOf(line);
    if (words.size() < 2 || !(words[1].starts_with("GL_") || words[1].starts_with("GLX_")))
        return;
    const std::string& name = words[1];
    if (words[0] == "ifndef") {
        const std::size_t vendor = name.find('_') + 1;
        headers.vendors.insert(name.substr(vendor, name.find('_', vendor) - vendor));
    }
    if (words[0] != "define" || words.size() != 3 || name.starts_with("GLX_VERSION_"))
        return;
    const std::string_view number = words[2];
    const bool hex = number.starts_with("0x");
    std::uint32_t value = 0;
    const char* const end = number.data() + number.size();
    const auto [stop, fault] =
        std::from_chars(number.data() + (hex ? 2 : 0), end, value, hex ? 16 : 10);
    if (fault == std::errc{} && stop == end)
        headers.defines.push_back({name, value});
}

// "... glName(type name, ...)"; other statements are left out.
void readStatement(Headers& headers, std::string_view statement)
{
    const std::size_t open = statement.find('(');
    const std::size_t close = statement.rfind(')');
    const std::vector<std::string> before = wordsOf(statement.substr(0, open));
    if (close == std::string_view::npos || before.empty() || !before.back().starts_with("gl") ||
        std::ranges::find(before, "typedef") != before.end())
        return;
    std::vector<Parameter> parameters;
    for (std::size_t at = open + 1; at < close;) {
        const std::size_t end = std::min(statement.find(',', at), close);
        const std::string_view text = statement.substr(at, end - at);
        std::vector<std::string> words = wordsOf(text);
        const std::string name = words.empty() ? "" : words.back();
        parameters.push_back({std::string(text.substr(0, text.rfind(name))), name});
        at = end + 1;
    }
    headers.prototypes.try_emplace(before.back(), std::move(parameters));
}

void readHeader(Headers& headers, const char* path)
{
    std::ifstream file(path);
    const std::string text((std::istreambuf_iterator<char>(file)), {});
    if (text.empty())
        throw std::runtime_error(std::string(path) + " cannot be read");
    std::string statement;
    bool directive = false;
    std::istringstream lines(withoutComments(text));
    for (std::string line; std::getline(lines, line);) {
        if (directive || line.starts_with('#')) {
            if (!directive)
                readDirective(headers, line);
            directive = line.ends_with('\\');
            continue;
        }
        for (const char c : line + ' ') {
            if (c != ';') {
                statement += c;
                continue;
            }
            readStatement(headers, statement);
            statement.clear();
        }
    }
}

// ---- Tables ------------------------------------------------------------------------------------

struct Choice {
    std::string name;
    int rank; // lower ones are preferred
    Vocabulary behind = Vocabulary::numbers;
};

// Names by vocabulary and value.
using Choices = std::map<std::pair<Vocabulary, std::uint32_t>, Choice>;

// The core's names come before those of extensions.
int rankOf(const Headers& headers, const std::string& name)
{
    const std::string last = name.substr(name.rfind('_') + 1);
    return !headers.vendors.contains(last) ? 0 : last == "ARB" ? 1 : last == "EXT" ? 2 : 3;
}

bool isBits(std::string_view name)
{
    return name.ends_with("_BIT") || name.find("_BIT_") != name.npos || name.ends_with("_MASK") ||
           (name.ends_with("_BITS") && name.find("_ALL_") != name.npos);
}

// Of names of the same rank the first one stays.
void choose(Choices& choices, Vocabulary vocabulary, const Define& define, int rank)
{
    const auto [at, isNew] = choices.try_emplace({vocabulary, define.value}, define.name, rank);
    if (!isNew && rank < at->second.rank)
        at->second = {define.name, rank};
}

const Define& find(const Headers& headers, const std::string& name)
{
    const auto at = std::ranges::find(headers.defines, name, &Define::name);
    if (at == headers.defines.end())
        throw std::runtime_error("the headers have no " + name);
    return *at;
}

Choices chooseNames(const Headers& headers)
{
    constexpr std::uint32_t firstEnumerant = 256;
    Choices choices;
    for (const Define& define : headers.defines) {
        if (isBits(define.name))
            continue;
        if (define.name.starts_with("GLX_"))
            choose(choices, Vocabulary::glxNames, define, rankOf(headers, define.name));
        else if (define.value >= firstEnumerant)
            choose(choices, Vocabulary::enumerants, define, rankOf(headers, define.name));
    }
    for (const VocabularyNames& more : vocabularyNames)
        for (const std::string& name : wordsOf(more.names))
            choose(choices, more.vocabulary, find(headers, name), -1);
    for (const ValueException& exception : valueExceptions)
        for (const std::string& name : wordsOf(exception.names))
            choices.at({exception.vocabulary, find(headers, name).value}).behind = exception.behind;
    return choices;
}

bool fits(std::string_view pattern, std::string_view name)
{
    return pattern.ends_with('*') ? name.starts_with(pattern.substr(0, pattern.size() - 1))
                                  : name == pattern;
}

Vocabulary vocabularyOf(std::string_view operation, const Parameter& parameter, bool behindPname)
{
    for (const ParameterException& exception : parameterExceptions)
        if (fits(exception.operation, operation) && fits(exception.parameter, parameter.name))
            return exception.vocabulary;
    const std::vector<std::string> type = wordsOf(parameter.type);
    const auto has = [&type](const char* word) {
        return std::ranges::find(type, word) != type.end();
    };
    return has("GLenum")       ? Vocabulary::enumerants
           : has("GLbitfield") ? Vocabulary::bits
           : has("GLboolean")  ? Vocabulary::booleans
           : behindPname       ? Vocabulary::behindPname
                               : Vocabulary::numbers;
}

void writeTables(std::ostream& out, const Headers& headers)
{
    out << "constexpr Name names[] = {\n";
    for (const auto& [key, choice] : chooseNames(headers))
        out << "    {Vocabulary{" << int(key.first) << "}, " << key.second << ", \"" << choice.name
            << "\", Vocabulary{" << int(choice.behind) << "}},\n";
    out << "};\n\nconstexpr NamedParameter parameters[] = {\n";
    for (const std::string_view operation : performed) {
        const auto prototype = headers.prototypes.find(operation);
        if (prototype == headers.prototypes.end())
            continue;
        int index = 0;
        bool behindPname = false;
        for (const Parameter& parameter : prototype->second) {
            const Vocabulary vocabulary = vocabularyOf(operation, parameter, behindPname);
            if (vocabulary != Vocabulary::numbers)
                out << "    {Op::" << operation << ", " << index << ", \"" << parameter.name
                    << "\", Vocabulary{" << int(vocabulary) << "}},\n";
            behindPname = parameter.name == "pname";
            ++index;
        }
    }
    out << "};\n";
}

} // namespace

int main(int argc, char** argv)
{
    try {
        Headers headers;
        for (int i = 2; i < argc; ++i)
            readHeader(headers, argv[i]);
        std::ofstream out(argv[1]);
        writeTables(out, headers);
        out.close();
        if (!out)
            throw std::runtime_error("the tables cannot be written");
    } catch (const std::exception& fault) {
        std::fprintf(stderr, "glTables: %s\n", fault.what());
        return 1;
    }
}
