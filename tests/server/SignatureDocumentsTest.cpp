#include "server/SignatureDocuments.h"
#include "server/NetworkService.h"
#include "server/Utf16.h"
#include "tests/support/AgentTest.h"

namespace varnoth::test {
namespace {

using Lines = std::vector<std::string>;
using Signatures = std::unordered_map<std::string, std::string>;
using Action = SignatureAction;

// An answer for the group Sales; without templates it has no Templates element, without a global
// setting no ApplicationSettings.
std::string answer(const std::string& defaultId, const std::string& replyId, const std::string& templates,
                   const std::string& account = "", const std::string& global = "") {
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?><Response><Identifier>ID-7</Identifier>"
           "<DeploymentInformation><DeploymentDataSource>Group</DeploymentDataSource>"
           "<DeploymentDataSourceName>Sales</DeploymentDataSourceName></DeploymentInformation>"
           "<DeploymentData><DefaultSignature>" +
           defaultId + "</DefaultSignature><ReplyForwardSignature>" + replyId + "</ReplyForwardSignature>" +
           (templates.empty() ? "" : "<Templates>" + templates + "</Templates>") +
           (account.empty() ? "" : "<RemoveOtherSignatures>" + account + "</RemoveOtherSignatures>") +
           "</DeploymentData>" +
           (global.empty() ? ""
                           : "<ApplicationSettings><RemoveOtherSignatures>" + global +
                                 "</RemoveOtherSignatures></ApplicationSettings>") +
           "</Response>";
}

std::string item(const std::string& id, const std::string& name, const std::string& html) {
    return "<Template>" + (id.empty() ? "" : "<Id>" + id + "</Id>") + "<Name>" + name + "</Name><HTML>" +
           html + "</HTML></Template>";
}

// A Response with the given elements before DeploymentData and the given DeploymentData content.
std::string response(const std::string& before, const std::string& data) {
    return "<Response>" + before + "<DeploymentData>" + data + "</DeploymentData></Response>";
}

const std::string ids =
    "<DefaultSignature>1</DefaultSignature><ReplyForwardSignature>2</ReplyForwardSignature>";
const std::string sourceLine = "Using the deployment configuration specified for the group 'Sales'.";
const std::string newFound = "Default new signature found on server";
const std::string replyFound = "Default reply forward signature found on server";
const std::string useGlobal =
    "Remove other signatures for this account is: Use deployment options configuration";

std::string globalLine(bool value) {
    return std::string("Remove other signatures set to ") + (value ? "true" : "false") +
           " in global deployment options";
}

// The given lines, then that of a global setting left out.
Lines thenGlobal(Lines lines) {
    lines.push_back(globalLine(false));
    return lines;
}

class SignatureDocumentsTest : public AgentTest {
protected:
    std::optional<SignatureDescriptor> parse(const std::string& text) {
        clearLog();
        return service.parseSignatures(text);
    }
    NetworkService service;
};

struct TemplateCase {
    const char* title;
    std::string text;
    SignatureDescriptor expected;
    Lines lines; // before the global setting's line
};

TEST_F(SignatureDocumentsTest, IdsPickTheDefaultsAndEveryOtherTemplateIsAdditional) {
    using D = SignatureDescriptor;
    const std::string zero = "Default new signature id set to 0: None";
    const std::string minus = "Default reply forward signature id set to -1: Don't change";
    const std::vector<TemplateCase> cases{
        {"one template with both ids", answer("12", "12", item("12", "Both", "both")),
         D{"both", "both", Action::change, Action::change, {}},
         Lines{sourceLine, newFound, "New signature is: Both", replyFound,
               "Reply forward signature is: Both"}},
        {"0 clears and -1 keeps", answer("0", "-1", item("5", "A", "a") + item("6", "B", "b")),
         D{"", "", Action::clear, Action::dontchange, {{"A", "a"}, {"B", "b"}}},
         Lines{sourceLine, zero, minus, "Found signature: A", "Found signature: B"}},
        {"templates with the ids 0 and -1",
         answer("0", "-1", item("0", "Zero", "z") + item("-1", "Minus", "m")),
         D{"z", "m", Action::clear, Action::dontchange, {}},
         Lines{sourceLine, zero, minus, newFound, "New signature is: Zero", replyFound,
               "Reply forward signature is: Minus"}},
        {"00 and a blank before 0 are ordinary ids",
         answer("00", " 0", item("0", "Zero", "z") + item("00", "Double", "d")),
         D{"d", "", Action::change, Action::change, {{"Zero", "z"}}},
         Lines{sourceLine, "Found signature: Zero", newFound, "New signature is: Double"}},
        {"no id, an unknown id, names alike, an id twice",
         answer("1", "2",
                item("", "Same", "first") + item("99", "Same", "second") + item("1", "1", "d1") +
                    item("1", "2", "d2")),
         D{"d2", "", Action::change, Action::change, {{"Same", "second"}}},
         Lines{sourceLine, "Found signature: Same", "Found signature: Same", newFound, "New signature is: 1",
               newFound, "New signature is: 2"}},
        {"no templates", answer("3", "4", ""), D{"", "", Action::change, Action::change, {}},
         Lines{sourceLine}},
        {"blanks are text", answer(" ", "2", item(" ", " ", " ")),
         D{" ", "", Action::change, Action::change, {}}, Lines{sourceLine, newFound, "New signature is:  "}},
        {"entities, character data, no name, empty HTML",
         answer("1", "2",
                "<Template><Id>1</Id><HTML>&lt;p&gt;&amp;<![CDATA[<i>x</i>]]>&#x1F600;</HTML></Template>"
                "<Template><Name>Empty</Name><HTML/></Template>"),
         D{"<p>&<i>x</i>😀", "", Action::change, Action::change, {{"Empty", ""}}},
         Lines{sourceLine, newFound, "New signature is: ", "Found signature: Empty"}},
    };
    for (const TemplateCase& test : cases) {
        SCOPED_TRACE(test.title);
        EXPECT_EQ(parse(test.text), test.expected);
        EXPECT_EQ(logLines(), thenGlobal(test.lines));
    }
}

TEST_F(SignatureDocumentsTest, RemoveOtherSignaturesCombinesTheAccountAndGlobalSettings) {
    const std::string removeAll =
        "Remove other signatures for this account is: Remove all signatures not deployed";
    const std::string keepAll = "Remove other signatures for this account is: Do not remove other signatures";
    const struct {
        std::string global, account;
        bool globalValue, expected;
        std::string accountLine;
    } cases[] = {
        {"TRUE", "", true, true, ""},
        {"True", "removeothersignatures", true, true, ""},
        {"yes", "", false, false, ""},
        {"", "RemoveOtherSignatures", false, true, removeAll},
        {"true", "PreseveOtherSignatures", true, false, keepAll},
        {"true", "PreserveOtherSignatures", true, true, ""},
        {"true", "UseGlobalSettings", true, true, useGlobal},
        {"false", "UseGlobalSettings", false, false, useGlobal},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.global + "/" + test.account);
        const auto descriptor = parse(answer("1", "2", "", test.account, test.global));
        ASSERT_TRUE(descriptor);
        EXPECT_EQ(descriptor->removeOtherSignatures, test.expected);
        Lines expected{sourceLine, globalLine(test.globalValue)};
        if (!test.accountLine.empty()) {
            expected.push_back(test.accountLine);
        }
        EXPECT_EQ(logLines(), expected);
    }
}

TEST_F(SignatureDocumentsTest, MissingIdsOrIdentifierGiveTheNoSettingDescriptorAndLeaveTheFieldsEmpty) {
    const std::string missing = "Error: DefaultSignature or ReplyForwardSignature missing";
    const std::string identifier = "<Identifier>x</Identifier>";
    const std::vector<std::pair<std::string, std::string>> cases{
        {response(identifier, "<DefaultSignature>1</DefaultSignature>"), missing},
        {response(identifier, "<ReplyForwardSignature>1</ReplyForwardSignature>"), missing},
        {response(identifier, "<DefaultSignature/><ReplyForwardSignature>1</ReplyForwardSignature>"),
         missing},
        {"<Answer>" + identifier + "<DeploymentData>" + ids + "</DeploymentData></Answer>", missing},
        {"no xml here", missing},
        {"", missing},
        {response(
             "<DeploymentInformation><DeploymentDataSource>G</DeploymentDataSource></DeploymentInformation>",
             ids),
         "Warning: There are no signatures defined for the user."},
    };
    for (const auto& [text, line] : cases) {
        SCOPED_TRACE(text);
        const auto descriptor = parse(text);
        ASSERT_TRUE(descriptor);
        EXPECT_EQ(*descriptor, SignatureDescriptor::noSettingDescriptor());
        EXPECT_EQ(logLines(), Lines{line});
        EXPECT_EQ(service.deployIdentifier, "");
        EXPECT_EQ(service.deployInformation, "");
    }
}

TEST_F(SignatureDocumentsTest, DeploymentInformationIsCutFromTheTextAsItStandsOrElseLeftAlone) {
    const std::string noInfo = "Warning: no <DeploymentInformation> found in response";
    const std::string noSource =
        "Warning: no <DeploymentDataSource> or <DeploymentDataSourceName> found in response";
    const std::string taken = "<DeploymentInformation>\n  <DeploymentDataSource>User</DeploymentDataSource>"
                              "<DeploymentDataSourceName>Ann &amp; Bob</DeploymentDataSourceName>\n"
                              "</DeploymentInformation>";
    const std::string nameless = "<DeploymentInformation><DeploymentDataSource>Group</DeploymentDataSource>"
                                 "</DeploymentInformation>";
    const struct {
        std::string text, stored;
        Lines lines;
    } cases[] = {
        {taken, taken, {"Using the deployment configuration specified for the user 'Ann & Bob'."}},
        {nameless, nameless, {noSource}}, // the parse goes on
        {"<DeploymentInformation kind=\"x\"><DeploymentDataSource>ÄRGER</DeploymentDataSource>"
         "<DeploymentDataSourceName>N</DeploymentDataSourceName></DeploymentInformation>",
         "earlier",
         {noInfo, "Using the deployment configuration specified for the ärger 'N'."}},
        {"<Note>&lt;/DeploymentInformation&gt;</Note><DeploymentInformation/>"
         "<X>&lt;DeploymentInformation&gt;</X>",
         "earlier",
         {noInfo, noSource}},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.text);
        service.deployInformation = "earlier";
        const auto descriptor = parse(response("<Identifier>x</Identifier>" + test.text, ids));
        ASSERT_TRUE(descriptor);
        EXPECT_FALSE(descriptor->noSetting);
        EXPECT_EQ(service.deployInformation, test.stored);
        EXPECT_EQ(logLines(), thenGlobal(test.lines));
    }
}

TEST_F(SignatureDocumentsTest, ARejectedDocumentIsParsedAsFarAsItGoesAndThenGivesNothing) {
    const std::string text = answer("1", "2", item("1", "D", "d")).substr(0, 400);
    EXPECT_EQ(parse(text), std::nullopt);
    const std::string last = logLines().empty() ? "" : logLines().back();
    EXPECT_EQ(last.rfind("Error: failed to parse XML error: ", 0), 0u) << last;
    EXPECT_NE(last.find(" for response: " + text.substr(0, 40)), std::string::npos);
    EXPECT_EQ(service.deployIdentifier, "ID-7"); // the lookups before the error check still ran
}

TEST_F(SignatureDocumentsTest, NamesAreQuotedAndARunawayTemplateListIsCut) {
    std::string templates = item("9", "Evil\n2024-01-01 00:00:00  Forged\x1B", "x");
    for (int i = 0; i < 10000; ++i) {
        templates += item("", "t" + std::to_string(i), "x");
    }
    const auto descriptor = parse(answer("1", "2", templates));
    ASSERT_TRUE(descriptor);
    EXPECT_EQ(descriptor->additionalSignatures.size(), 10000u); // the first 10,000 of 10,001
    const Lines lines = logLines();
    EXPECT_EQ(
        std::count(lines.begin(), lines.end(), "Found signature: Evil\\n2024-01-01 00:00:00  Forged\\x1B"),
        1);
    EXPECT_EQ(
        std::count(lines.begin(), lines.end(),
                   "Error: response from server holds more than 10000 templates; the others are ignored"),
        1);
}

TEST(SignaturesRequestTest, PutsTheAddressInUnchanged) {
    const auto text = utf16::decode(makeSignaturesRequest("a&<b@example.com"));
    EXPECT_NE(text->find("<EmailAddress>a&<b@example.com</EmailAddress></Request>"), std::string::npos);
}

} // namespace
} // namespace varnoth::test
