#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Xml.h"

#include <gmock/gmock.h>

#include <string>

namespace varo::platform {
namespace {

std::string repeated(const std::string& text, int count) {
  std::string all;
  for (int i = 0; i < count; ++i) all += text;
  return all;
}

TEST(XmlTest, GivesNamesTextsAndChildren) {
  const auto root = xml::parse(
      "<?xml version=\"1.0\"?>\n<s:List xmlns:s=\"http://s\"><Key a='b'>x &lt;&#228;&gt; "
      "<![CDATA[<y>]]></Key><Empty/><Key>2</Key></s:List>");
  ASSERT_TRUE(root.ok());
  EXPECT_EQ(root->name, "List");
  EXPECT_EQ(root->textOf("Key"), "x <\xC3\xA4> <y>");
  EXPECT_EQ(root->children.size(), 3U);
  EXPECT_NE(root->child("Empty"), nullptr);
  EXPECT_EQ(root->child("None"), nullptr);
  EXPECT_EQ(xml::parse("<a>" + xml::escaped("<&\">") + "</a>")->text, "<&\">");
}

TEST(XmlTest, RefusesWhatIsNoXmlAndWhatWouldHaveNoEnd) {
  const std::pair<std::string, std::int64_t> cases[] = {
      {"", xml::kNotXml},
      {"text", xml::kNotXml},
      {"<a><b></a></b>", xml::kNotXml},
      {"<a>", xml::kNotXml},
      {"<a/><b/>", xml::kNotXml},
      {"<a>\xFF</a>", xml::kNotXml},
      {"<a>&other;</a>", xml::kNotXml},
      {repeated("<a>", 17) + repeated("</a>", 17), xml::kTooDeep},
      {repeated("<a>", 1'000'000), xml::kTooDeep},
      {"<a>" + repeated("<b/>", 70'000) + "</a>", xml::kTooManyElements},
      {"<!DOCTYPE a [<!ENTITY b \"bbbb\">]><a>&b;&b;</a>", xml::kHasDocumentType},
  };
  for (const auto& [text, code] : cases) {
    const auto parsed = xml::parse(text);
    ASSERT_FALSE(parsed.ok()) << text.substr(0, 40);
    EXPECT_EQ(parsed.error()->code(), code) << parsed.error()->localizedDescription();
  }
}

}  // namespace
}  // namespace varo::platform
