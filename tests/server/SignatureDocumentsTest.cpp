#include "server/NetworkService.h"
#include "server/SignatureDocuments.h"
#include "server/Utf16.h"
#include "tests/support/AgentTest.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>

namespace varnoth::test {
namespace {

using Lines = std::vector<std::string>;

std::string answer(const std::string& defaultId, const std::string& replyId, const std::string& templates,
                   const std::string& extra = "") {
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?><Response><Identifier>ID-7</Identifier>"
           "<DeploymentInformation><DeploymentDataSource>Group</DeploymentDataSource>"
           "<DeploymentDataSourceName>Sales</DeploymentDataSourceName></DeploymentInformation>"
           "<DeploymentData><DefaultSignature>" + defaultId + "</DefaultSignature><ReplyForwardSignature>" + replyId +
           "</ReplyForwardSignature><Templates>" + templates + "</Templates>" + extra + "</DeploymentData></Response>";
}

std::string item(const std::string& id, const std::string& name, const std::string& html) {
    return "<Template>" + (id.empty() ? "" : "<Id>" + id + "</Id>") + "<Name>" + name + "</Name><HTML>" + html + "</HTML></Template>";
}

const std::string sourceLine = "Using the deployment configuration specified for the group 'Sales'.";
const std::string globalFalse = "Remove other signatures set to false in global deployment options";

class SignatureDocumentsTest : public AgentTest {
protected:
    std::optional<SignatureDescriptor> parse(const std::string& text) { return service.parseSignatures(text); }
    NetworkService service;
};

// --- a complete answer ----------------------------------------------------------------------------

TEST_F(SignatureDocumentsTest, CompleteAnswerGivesTheDeploymentAndLogsEachDecisionInOrder) {
    const std::string text = answer("12", "13",
                                    item("12", "New", "&lt;b&gt;new&lt;/b&gt;") + item("13", "Reply", "reply") +
                                        item("14", "Legal", "legal") + item("", "Plain", "plain"),
                                    "<RemoveOtherSignatures>UseGlobalSettings</RemoveOtherSignatures>") ;
    const std::string withGlobal = text.substr(0, text.size() - 11) +
                                   "<ApplicationSettings><RemoveOtherSignatures>TRUE</RemoveOtherSignatures></ApplicationSettings></Response>";
    const auto descriptor = parse(withGlobal);
    ASSERT_TRUE(descriptor);
    EXPECT_EQ(descriptor->defaultSignature, "<b>new</b>");
    EXPECT_EQ(descriptor->replySignature, "reply");
    EXPECT_EQ(descriptor->defaultSignatureAction, SignatureAction::change);
    EXPECT_EQ(descriptor->replySignatureAction, SignatureAction::change);
    EXPECT_EQ(descriptor->additionalSignatures, (std::unordered_map<std::string, std::string>{{"Legal", "legal"}, {"Plain", "plain"}}));
    EXPECT_TRUE(descriptor->removeOtherSignatures);
    EXPECT_FALSE(descriptor->noSetting);
    EXPECT_EQ(service.deployIdentifier, "ID-7");
    EXPECT_EQ(service.deployInformation, "<DeploymentInformation><DeploymentDataSource>Group</DeploymentDataSource>"
                                         "<DeploymentDataSourceName>Sales</DeploymentDataSourceName></DeploymentInformation>");
    EXPECT_EQ(logLines(), (Lines{sourceLine, "Default new signature found on server", "New signature is: New",
                                 "Default reply forward signature found on server", "Reply forward signature is: Reply",
                                 "Found signature: Legal", "Found signature: Plain",
                                 "Remove other signatures set to true in global deployment options",
                                 "Remove other signatures for this account is: Use deployment options configuration"}));
}

// --- ids and template matching ------------------------------------------------------------------

TEST_F(SignatureDocumentsTest, OneTemplateCarryingBothIdsIsBothDefaultsAndNoAdditionalSignature) {
    const auto descriptor = parse(answer("12", "12", item("12", "Both", "both")));
    ASSERT_TRUE(descriptor);
    EXPECT_EQ(descriptor->defaultSignature, "both");
    EXPECT_EQ(descriptor->replySignature, "both");
    EXPECT_TRUE(descriptor->additionalSignatures.empty());
    EXPECT_EQ(logLines(), (Lines{sourceLine, "Default new signature found on server", "New signature is: Both",
                                 "Default reply forward signature found on server", "Reply forward signature is: Both",
                                 globalFalse}));
}

TEST_F(SignatureDocumentsTest, ZeroClearsMinusOneKeepsAndEveryTemplateIsAdditional) {
    const auto descriptor = parse(answer("0", "-1", item("5", "A", "a") + item("6", "B", "b")));
    ASSERT_TRUE(descriptor);
    EXPECT_EQ(descriptor->defaultSignatureAction, SignatureAction::clear);
    EXPECT_EQ(descriptor->replySignatureAction, SignatureAction::dontchange);
    EXPECT_EQ(descriptor->defaultSignature, "");
    EXPECT_EQ(descriptor->replySignature, "");
    EXPECT_EQ(descriptor->additionalSignatures.size(), 2u);
    EXPECT_EQ(logLines(), (Lines{sourceLine, "Default new signature id set to 0: None",
                                 "Default reply forward signature id set to -1: Don't change", "Found signature: A",
                                 "Found signature: B", globalFalse}));
}

TEST_F(SignatureDocumentsTest, ATemplateWithIdZeroStillFillsTheClearedDefault) {
    const auto descriptor = parse(answer("0", "-1", item("0", "Zero", "zero") + item("-1", "Minus", "minus")));
    ASSERT_TRUE(descriptor);
    EXPECT_EQ(descriptor->defaultSignature, "zero");
    EXPECT_EQ(descriptor->replySignature, "minus");
    EXPECT_TRUE(descriptor->additionalSignatures.empty());
}

TEST_F(SignatureDocumentsTest, IdsLikeDoubleZeroOrWithABlankAreOrdinaryIdsComparedExactly) {
    auto descriptor = parse(answer("00", " 0", item("0", "Zero", "zero") + item("00", "Double", "double")));
    ASSERT_TRUE(descriptor);
    EXPECT_EQ(descriptor->defaultSignatureAction, SignatureAction::change);
    EXPECT_EQ(descriptor->replySignatureAction, SignatureAction::change);
    EXPECT_EQ(descriptor->defaultSignature, "double");
    EXPECT_EQ(descriptor->replySignature, "");
    EXPECT_EQ(descriptor->additionalSignatures, (std::unordered_map<std::string, std::string>{{"Zero", "zero"}}));
}

TEST_F(SignatureDocumentsTest, TemplatesWithoutIdOrWithUnknownIdAndNamesAlikeKeepTheLaterContent) {
    const auto descriptor = parse(answer("1", "2", item("", "Same", "first") + item("99", "Same", "second") +
                                                       item("1", "D1", "d1") + item("1", "D2", "d2")));
    ASSERT_TRUE(descriptor);
    EXPECT_EQ(descriptor->additionalSignatures, (std::unordered_map<std::string, std::string>{{"Same", "second"}}));
    EXPECT_EQ(descriptor->defaultSignature, "d2"); // the last template with the id wins
    EXPECT_EQ(descriptor->replySignature, "");
    const Lines lines = logLines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "Found signature: Same"), 2);
}

TEST_F(SignatureDocumentsTest, WithoutTemplatesBothContentsAreEmpty) {
    const auto descriptor = parse("<Response><Identifier>x</Identifier><DeploymentData><DefaultSignature>3</DefaultSignature>"
                                  "<ReplyForwardSignature>4</ReplyForwardSignature></DeploymentData></Response>");
    ASSERT_TRUE(descriptor);
    EXPECT_EQ(descriptor->defaultSignature, "");
    EXPECT_EQ(descriptor->replySignature, "");
    EXPECT_TRUE(descriptor->additionalSignatures.empty());
    EXPECT_EQ(descriptor->defaultSignatureAction, SignatureAction::change);
}

TEST_F(SignatureDocumentsTest, TemplateTextsDecodeEntitiesAndCdataAndMissingPartsAreEmpty) {
    const auto descriptor = parse(answer("1", "2", "<Template><Id>1</Id><HTML>&lt;p&gt;&amp;<![CDATA[<i>x</i>]]>&#x1F600;</HTML></Template>"
                                                   "<Template><Name>Empty</Name><HTML/></Template>"));
    ASSERT_TRUE(descriptor);
    EXPECT_EQ(descriptor->defaultSignature, "<p>&<i>x</i>😀");
    EXPECT_EQ(descriptor->additionalSignatures, (std::unordered_map<std::string, std::string>{{"Empty", ""}}));
    EXPECT_EQ(logLines()[2], "New signature is: ");
}

// --- remove other signatures ----------------------------------------------------------------------

struct RemoveCase {
    std::string global;
    std::string account;
    bool expected;
    std::vector<std::string> lines;
};

TEST_F(SignatureDocumentsTest, RemoveOtherSignaturesCombinesTheAccountAndGlobalSettings) {
    const auto globalLine = [](bool value) {
        return std::string("Remove other signatures set to ") + (value ? "true" : "false") + " in global deployment options";
    };
    const std::vector<RemoveCase> cases{
        {"TRUE", "", true, {globalLine(true)}},
        {"True", "removeothersignatures", true, {globalLine(true)}},
        {"yes", "", false, {globalLine(false)}},
        {"", "RemoveOtherSignatures", true, {globalLine(false), "Remove other signatures for this account is: Remove all signatures not deployed"}},
        {"true", "PreseveOtherSignatures", false, {globalLine(true), "Remove other signatures for this account is: Do not remove other signatures"}},
        {"true", "PreserveOtherSignatures", true, {globalLine(true)}},
        {"true", "UseGlobalSettings", true, {globalLine(true), "Remove other signatures for this account is: Use deployment options configuration"}},
        {"false", "UseGlobalSettings", false, {globalLine(false), "Remove other signatures for this account is: Use deployment options configuration"}},
    };
    for (const RemoveCase& c : cases) {
        clearLog();
        const std::string account = c.account.empty() ? "" : "<RemoveOtherSignatures>" + c.account + "</RemoveOtherSignatures>";
        std::string text = answer("1", "2", "", account);
        if (!c.global.empty()) {
            text.insert(text.size() - 11, "<ApplicationSettings><RemoveOtherSignatures>" + c.global + "</RemoveOtherSignatures></ApplicationSettings>");
        }
        const auto descriptor = parse(text);
        ASSERT_TRUE(descriptor) << c.global << "/" << c.account;
        EXPECT_EQ(descriptor->removeOtherSignatures, c.expected) << c.global << "/" << c.account;
        Lines expected{sourceLine};
        expected.insert(expected.end(), c.lines.begin(), c.lines.end());
        EXPECT_EQ(logLines(), expected) << c.global << "/" << c.account;
    }
}

// --- no setting -------------------------------------------------------------------------------------

TEST_F(SignatureDocumentsTest, MissingOrEmptyIdsGiveTheNoSettingDescriptor) {
    for (const std::string& data : {std::string("<DefaultSignature>1</DefaultSignature>"),
                                    std::string("<ReplyForwardSignature>1</ReplyForwardSignature>"),
                                    std::string("<DefaultSignature/><ReplyForwardSignature>1</ReplyForwardSignature>")}) {
        clearLog();
        const auto descriptor = parse("<Response><Identifier>x</Identifier><DeploymentData>" + data + "</DeploymentData></Response>");
        ASSERT_TRUE(descriptor);
        EXPECT_EQ(*descriptor, SignatureDescriptor::noSettingDescriptor());
        EXPECT_EQ(logLines(), Lines{"Error: DefaultSignature or ReplyForwardSignature missing"});
        EXPECT_EQ(service.deployIdentifier, "");
    }
}

TEST_F(SignatureDocumentsTest, BothIdsWithoutIdentifierGiveTheNoSettingDescriptorAndLeaveTheFieldsEmpty) {
    const auto descriptor = parse("<Response><DeploymentInformation><DeploymentDataSource>Group</DeploymentDataSource>"
                                  "</DeploymentInformation><DeploymentData><DefaultSignature>1</DefaultSignature>"
                                  "<ReplyForwardSignature>2</ReplyForwardSignature></DeploymentData></Response>");
    ASSERT_TRUE(descriptor);
    EXPECT_TRUE(descriptor->noSetting);
    EXPECT_EQ(descriptor->defaultSignature, std::nullopt);
    EXPECT_EQ(descriptor->defaultSignatureAction, SignatureAction::undefined);
    EXPECT_EQ(logLines(), Lines{"Warning: There are no signatures defined for the user."});
    EXPECT_EQ(service.deployIdentifier, "");
    EXPECT_EQ(service.deployInformation, "");
}

TEST_F(SignatureDocumentsTest, ADocumentThatIsNotResponseOrNotXmlAtAllEndsAtTheIdCheck) {
    for (const std::string& text : {std::string("<Answer><DeploymentData><DefaultSignature>1</DefaultSignature>"
                                                "<ReplyForwardSignature>2</ReplyForwardSignature></DeploymentData></Answer>"),
                                    std::string("no xml here"), std::string()}) {
        clearLog();
        const auto descriptor = parse(text);
        ASSERT_TRUE(descriptor) << text;
        EXPECT_TRUE(descriptor->noSetting);
        EXPECT_EQ(logLines(), Lines{"Error: DefaultSignature or ReplyForwardSignature missing"});
    }
}

// --- deployment information -------------------------------------------------------------------------

TEST_F(SignatureDocumentsTest, DeploymentInformationIsCutFromTheTextAsItStands) {
    const std::string info = "<DeploymentInformation>\n  <DeploymentDataSource>User</DeploymentDataSource>"
                             "<DeploymentDataSourceName>Ann &amp; Bob</DeploymentDataSourceName>\n</DeploymentInformation>";
    const auto descriptor = parse("<Response><Identifier>x</Identifier>" + info + "<DeploymentData><DefaultSignature>1"
                                  "</DefaultSignature><ReplyForwardSignature>2</ReplyForwardSignature></DeploymentData></Response>");
    ASSERT_TRUE(descriptor);
    EXPECT_EQ(service.deployInformation, info);
    EXPECT_EQ(logLines().front(), "Using the deployment configuration specified for the user 'Ann & Bob'.");
}

TEST_F(SignatureDocumentsTest, DeploymentInformationWithAttributesOrOutOfOrderTagsIsNotTaken) {
    service.deployInformation = "earlier";
    for (const std::string& info : {std::string("<DeploymentInformation kind=\"x\"><DeploymentDataSource>G</DeploymentDataSource>"
                                                "<DeploymentDataSourceName>N</DeploymentDataSourceName></DeploymentInformation>"),
                                    std::string("<Note>&lt;/DeploymentInformation&gt;</Note><DeploymentInformation/>"
                                                "<X>&lt;DeploymentInformation&gt;</X>")}) {
        clearLog();
        const auto descriptor = parse("<Response><Identifier>x</Identifier>" + info + "<DeploymentData><DefaultSignature>1"
                                      "</DefaultSignature><ReplyForwardSignature>2</ReplyForwardSignature></DeploymentData></Response>");
        ASSERT_TRUE(descriptor);
        EXPECT_EQ(service.deployInformation, "earlier");
        const Lines lines = logLines();
        ASSERT_GE(lines.size(), 2u);
        EXPECT_EQ(lines[0], "Warning: no <DeploymentInformation> found in response");
    }
    EXPECT_EQ(logLines()[1], "Warning: no <DeploymentDataSource> or <DeploymentDataSourceName> found in response");
}

TEST_F(SignatureDocumentsTest, AMissingSourceNameIsAWarningAndTheParseGoesOn) {
    const auto descriptor = parse("<Response><Identifier>x</Identifier><DeploymentInformation><DeploymentDataSource>Group"
                                  "</DeploymentDataSource></DeploymentInformation><DeploymentData><DefaultSignature>1"
                                  "</DefaultSignature><ReplyForwardSignature>2</ReplyForwardSignature></DeploymentData></Response>");
    ASSERT_TRUE(descriptor);
    EXPECT_FALSE(descriptor->noSetting);
    EXPECT_EQ(logLines(), (Lines{"Warning: no <DeploymentDataSource> or <DeploymentDataSourceName> found in response", globalFalse}));
}

// --- parser errors ----------------------------------------------------------------------------------

TEST_F(SignatureDocumentsTest, ARejectedDocumentIsParsedAsFarAsItGoesAndThenGivesNothing) {
    const std::string text = answer("1", "2", item("1", "D", "d")).substr(0, 400);
    const auto descriptor = parse(text);
    EXPECT_EQ(descriptor, std::nullopt);
    const Lines lines = logLines();
    ASSERT_FALSE(lines.empty());
    const std::string& last = lines.back();
    EXPECT_EQ(last.rfind("Error: failed to parse XML error: ", 0), 0u) << last;
    EXPECT_NE(last.find(" for response: " + text.substr(0, 40)), std::string::npos);
    EXPECT_EQ(service.deployIdentifier, "ID-7"); // the lookups before the error check still ran
}

// --- documents the agent sends ------------------------------------------------------------------------

TEST(DeploymentDocumentsTest, SignaturesRequestPutsTheAddressInUnchanged) {
    EXPECT_EQ(utf16::decode(makeSignaturesRequest("a&<b@example.com")),
              "##!! DATA BLOCK START !!##<?xml version=\"1.0\" encoding=\"utf-16\"?><Request Type=\"GetSignatures\" "
              "Version=\"1.1.0\" Source=\"DeploymentAgent\"><EmailAddress>a&<b@example.com</EmailAddress></Request>"
              "##!! DATA BLOCK END !!##");
}

TEST(DeploymentDocumentsTest, LogEscapingReplacesAmpersandFirstThenTheAngleBrackets) {
    EXPECT_EQ(escapeDeploymentLog("a < b & c > d"), "a &lt; b &amp; c &gt; d");
    EXPECT_EQ(escapeDeploymentLog("&amp; \"q\" 'a'"), "&amp;amp; \"q\" 'a'");
}

TEST(DeploymentDocumentsTest, BodyHasTheEightPiecesInOrderAndMissingVersionsLeaveTheDot) {
    DeploymentLogContent content;
    content.bundleName = "Agent";
    content.log = "x<y";
    content.times = {"2026-01-02T03:04:05", "2026-01-02T05:04:05"};
    EXPECT_EQ(makeDeploymentLogBody(content),
              "<ExecutableFullFileName>Agent</ExecutableFullFileName><ExecutableVersion>.</ExecutableVersion>"
              "<Result>Failure</Result><DeploymentLog>x&lt;y</DeploymentLog><DateTimeUtc>2026-01-02T03:04:05</DateTimeUtc>"
              "<DateTimeLocal>2026-01-02T05:04:05</DateTimeLocal>");
    content.deployIdentifier = "ID";
    content.deployInformation = "<DeploymentInformation/>";
    content.success = true;
    const std::string body = makeDeploymentLogBody(content);
    EXPECT_EQ(body.rfind("ID<DeploymentInformation/><ExecutableFullFileName>", 0), 0u);
    EXPECT_NE(body.find("<Result>Success</Result>"), std::string::npos);
}

TEST(DeploymentDocumentsTest, TimesAreOneInstantInUtcAndInTheProcessTimeZone) {
    const char* saved = std::getenv("TZ");
    const std::optional<std::string> previous = saved ? std::optional<std::string>(saved) : std::nullopt;
    setenv("TZ", "XXX-2", 1);
    tzset();
    // 2026-07-14 21:30:00 UTC
    const auto instant = std::chrono::system_clock::from_time_t(1784064600) + std::chrono::milliseconds(999);
    const DeploymentTimes times = deploymentTimes(instant);
    if (previous) {
        setenv("TZ", previous->c_str(), 1);
    } else {
        unsetenv("TZ");
    }
    tzset();
    EXPECT_EQ(times.utc, "2026-07-14T21:30:00");
    EXPECT_EQ(times.local, "2026-07-14T23:30:00");
}

} // namespace
} // namespace varnoth::test
