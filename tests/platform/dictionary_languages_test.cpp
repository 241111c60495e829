// Every language of the dictionary holds every key of the German one, with the same placeholders
// in the same order and the same module-dependent parts.
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <regex>
#include <sstream>

namespace {

struct Entry {
    std::string placeholders;   // the printf conversions, in order
    std::string parts;          // the module-dependent child elements, in order
};

std::map<std::string, Entry> entriesOf(const std::string& language)
{
    std::ifstream in(std::string(VELDOR_SOURCE_DIR) + "/app/datadict_" + language + ".xml");
    std::stringstream text;
    text << in.rdbuf();
    std::string all = text.str();
    std::map<std::string, Entry> entries;
    static const std::regex k(R"re(<k id="([^"]*)">([\s\S]*?)</k>)re");
    static const std::regex conversion(R"(%[-+ #0]*[0-9]*(?:\.[0-9]+)?(?:ll|l|z|h)?[a-zA-Z%])");
    static const std::regex part(R"(<([A-Z_]+)>)");
    for (auto it = std::sregex_iterator(all.begin(), all.end(), k); it != std::sregex_iterator(); ++it) {
        std::string body = (*it)[2];
        Entry& e = entries[(*it)[1]];
        for (auto c = std::sregex_iterator(body.begin(), body.end(), conversion); c != std::sregex_iterator(); ++c)
            e.placeholders += c->str() + " ";
        for (auto p = std::sregex_iterator(body.begin(), body.end(), part); p != std::sregex_iterator(); ++p)
            e.parts += (*p)[1].str() + " ";
    }
    return entries;
}

TEST(DictionaryLanguages, EnglishHoldsEveryGermanKeyWithItsPlaceholders)
{
    auto de = entriesOf("de");
    auto en = entriesOf("en");
    ASSERT_GT(de.size(), 500u);
    for (const auto& [key, entry] : de) {
        auto it = en.find(key);
        if (it == en.end()) {
            ADD_FAILURE() << "datadict_en.xml lacks the key " << key;
            continue;
        }
        EXPECT_EQ(it->second.placeholders, entry.placeholders) << key;
        EXPECT_EQ(it->second.parts, entry.parts) << key;
    }
    // beside those, only the translations of the messages the program writes as German text,
    // each keeping the values of its German format
    static const std::regex conversion(R"(%[-+ #0]*[0-9]*(?:\.[0-9]+)?(?:ll|l|z|h)?[a-zA-Z%])");
    int translations = 0;
    for (const auto& [key, entry] : en) {
        if (key.rfind("de:", 0) == 0) {
            ++translations;
            std::string german, text = key.substr(3);
            for (auto c = std::sregex_iterator(text.begin(), text.end(), conversion); c != std::sregex_iterator(); ++c)
                german += c->str() + " ";
            EXPECT_EQ(entry.placeholders, german) << key;
            continue;
        }
        EXPECT_TRUE(de.count(key)) << "datadict_en.xml has a key of its own: " << key;
    }
    EXPECT_GT(translations, 80);
}

} // namespace
