// Turns the message catalogue (messages/catalogue.mc, UTF-8) into a header of
// symbolic ids and a source file of wide-text tables, one per language.
//
// usage: gen_messages catalogue.mc messages.h catalogue.cpp
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct message {
    unsigned id = 0;
    std::string symbol;
    std::map<std::string, std::vector<std::string>> texts; // language -> lines
};

// Decodes UTF-8 and writes each character as a C++ escape fit for a u"" literal.
std::string escape_utf16(const std::string &line, bool &ok) {
    std::string out;
    for (size_t i = 0; i < line.size();) {
        unsigned char c = static_cast<unsigned char>(line[i]);
        unsigned code = c;
        size_t extra = 0;
        if (c >= 0xF0) {
            code = c & 0x07u;
            extra = 3;
        } else if (c >= 0xE0) {
            code = c & 0x0Fu;
            extra = 2;
        } else if (c >= 0xC0) {
            code = c & 0x1Fu;
            extra = 1;
        } else if (c >= 0x80) {
            ok = false;
            return out;
        }
        if (i + extra >= line.size() + (extra ? 0 : 1)) {
            ok = false;
            return out;
        }
        for (size_t k = 1; k <= extra; ++k)
            code = (code << 6) | (static_cast<unsigned char>(line[i + k]) & 0x3Fu);
        i += extra + 1;
        char buf[16];
        if (code == '\\' || code == '"') {
            out += '\\';
            out += static_cast<char>(code);
        } else if (code >= 0x20 && code < 0x7F) {
            out += static_cast<char>(code);
        } else if (code > 0xFFFF) {
            std::snprintf(buf, sizeof buf, "\\U%08X", code);
            out += buf;
        } else {
            std::snprintf(buf, sizeof buf, "\\u%04X", code);
            out += buf;
        }
    }
    return out;
}

bool starts_with(const std::string &s, const char *prefix) {
    return s.compare(0, std::char_traits<char>::length(prefix), prefix) == 0;
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 4) {
        std::cerr << "usage: gen_messages catalogue.mc messages.h catalogue.cpp\n";
        return 2;
    }
    std::ifstream in(argv[1], std::ios::binary);
    if (!in) {
        std::cerr << "gen_messages: cannot read " << argv[1] << "\n";
        return 1;
    }
    std::vector<message> messages;
    std::string line, language;
    bool in_text = false;
    int line_no = 0;
    while (std::getline(in, line)) {
        ++line_no;
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (in_text) {
            if (line == ".") {
                in_text = false;
                continue;
            }
            messages.back().texts[language].push_back(line);
            continue;
        }
        if (line.empty() || starts_with(line, ";")) continue;
        if (starts_with(line, "MessageId=")) {
            messages.emplace_back();
            messages.back().id = static_cast<unsigned>(std::stoul(line.substr(10), nullptr, 0));
        } else if (starts_with(line, "SymbolicName=") && !messages.empty()) {
            messages.back().symbol = line.substr(13);
        } else if (starts_with(line, "Language=") && !messages.empty()) {
            language = line.substr(9);
            in_text = true;
        } else if (starts_with(line, "MessageIdTypedef=") || starts_with(line, "LanguageNames=")) {
            continue;
        } else {
            std::cerr << argv[1] << ":" << line_no << ": unexpected line\n";
            return 1;
        }
    }
    const char *languages[] = {"English", "Swedish"};
    for (size_t i = 0; i < messages.size(); ++i) {
        if (messages[i].id != i + 1 || messages[i].symbol.empty()) {
            std::cerr << "gen_messages: ids must run 1, 2, ... without gaps, each with a name\n";
            return 1;
        }
        for (const char *lang : languages)
            if (!messages[i].texts.count(lang)) {
                std::cerr << "gen_messages: " << messages[i].symbol << " has no " << lang
                          << " text\n";
                return 1;
            }
    }

    std::ostringstream h;
    h << "// Generated from messages/catalogue.mc; do not edit.\n#pragma once\n\n"
         "#include <cstdint>\n\n";
    for (const message &m : messages) {
        char buf[64];
        std::snprintf(buf, sizeof buf, "0x%08X", 0x20000000u | m.id);
        h << "constexpr uint32_t " << m.symbol << " = " << buf << ";\n";
    }
    h << "\nconstexpr uint32_t MSG_FIRST = 0x20000001;\n"
      << "constexpr uint32_t MSG_LAST = 0x" << std::hex << (0x20000000u | messages.size())
      << std::dec << ";\n\n"
      << "// The text template of a catalogue id in a language (1033 English, 1053 Swedish),\n"
         "// each line ending in CR LF; null for an id the catalogue does not hold.\n"
         "const char16_t *catalogue_text(uint32_t id, uint16_t language);\n";

    std::ostringstream c;
    c << "// Generated from messages/catalogue.mc; do not edit.\n#include \"messages.h\"\n\n"
         "namespace {\n";
    for (const char *lang : languages) {
        c << "const char16_t *const text_" << lang << "[] = {\n";
        for (const message &m : messages) {
            c << "    u\"";
            for (const std::string &l : m.texts.at(lang)) {
                bool ok = true;
                c << escape_utf16(l, ok) << "\\r\\n";
                if (!ok) {
                    std::cerr << "gen_messages: " << m.symbol << " is not valid UTF-8\n";
                    return 1;
                }
            }
            c << "\",\n";
        }
        c << "};\n";
    }
    c << "} // namespace\n\n"
         "const char16_t *catalogue_text(uint32_t id, uint16_t language) {\n"
         "    if (id < MSG_FIRST || id > MSG_LAST) return nullptr;\n"
         "    const char16_t *const *table = language == 1053 ? text_Swedish : text_English;\n"
         "    return table[id - MSG_FIRST];\n"
         "}\n";

    std::ofstream hout(argv[2], std::ios::binary), cout_(argv[3], std::ios::binary);
    hout << h.str();
    cout_ << c.str();
    return (hout && cout_) ? 0 : 1;
}
