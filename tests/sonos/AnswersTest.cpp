// The pure readings of the speaker stack: tag scans, numbers, metadata, identities and the
// request bytes, without any network.
#include "sonos/SoapAnswer.h"
#include "sonos/SoapEnvelope.h"
#include "sonos/SonosDevice.h"
#include "sonos/Tags.h"
#include "sonos/XmlText.h"

#include <gtest/gtest.h>

#include <optional>

namespace {

struct ElementCase {
    const char* name;
    const char* text;
    std::optional<const char*> expected;
};

TEST(Tags, ElementScansForTheExactOpeningTagAndTheFirstClosingTagAfterIt)
{
    const ElementCase cases[] = {
        {"CurrentVolume", "<r><CurrentVolume>25</CurrentVolume></r>", "25"},
        {"CurrentVolume", "<CurrentVolume></CurrentVolume>", ""},
        {"CurrentVolume", "<CurrentVolume> 7 \n</CurrentVolume>", " 7 \n"},
        // An opening tag with attributes is not the element.
        {"CurrentVolume", "<CurrentVolume val=\"3\">25</CurrentVolume>", std::nullopt},
        {"CurrentVolume",
         "<CurrentVolume a=\"1\">9</CurrentVolume><CurrentVolume>4</CurrentVolume>", "4"},
        // Case matters.
        {"CurrentVolume", "<currentvolume>25</currentvolume>", std::nullopt},
        {"CurrentVolume", "<CurrentVolume>25</currentvolume>", std::nullopt},
        {"CurrentVolume", "<CurrentVolume>25", std::nullopt},
        {"CurrentVolume", "25</CurrentVolume>", std::nullopt},
        {"CurrentVolume", "", std::nullopt},
        // The first opening tag wins, and the first closing tag after it.
        {"a", "<a>1</a><a>2</a>", "1"},
        {"a", "</a><a>x</a>", "x"},
        {"a", "<a><a>inner</a></a>", "<a>inner"},
        // Entities stay as they are.
        {"dc:title", "<dc:title>Tom &amp; Jerry</dc:title>", "Tom &amp; Jerry"},
        // A longer name that starts the same is another element.
        {"Current", "<CurrentVolume>1</CurrentVolume>", std::nullopt},
        {"TrackURI", "<TrackURIx>no</TrackURIx><TrackURI>yes</TrackURI>", "yes"},
    };
    for (const ElementCase& c : cases) {
        SCOPED_TRACE(std::string(c.name) + " in " + c.text);
        const std::optional<QString> found =
            Tags::element(QString::fromUtf8(c.name), QString::fromUtf8(c.text));
        if (c.expected)
            EXPECT_EQ(found, QString::fromUtf8(*c.expected));
        else
            EXPECT_EQ(found, std::nullopt);
    }
}

TEST(SoapAnswer, DecimalIntegerTakesAnOptionalSignAndAsciiDigitsWithinSixtyFourBits)
{
    const std::pair<const char*, std::optional<qint64>> cases[] = {
        {"+25", 25},
        {"-3", -3},
        {"007", 7},
        {"9223372036854775807", Q_INT64_C(9223372036854775807)},
        {"-9223372036854775808", std::numeric_limits<qint64>::min()},
        {"9223372036854775808", std::nullopt},
        {"-9223372036854775809", std::nullopt},
        {"", std::nullopt},
        {"-", std::nullopt},
        {"+-5", std::nullopt},
        {"--5", std::nullopt},
        {" 25", std::nullopt},
        {"25\n", std::nullopt},
        {"0x19", std::nullopt},
        {"2.5", std::nullopt},
        // Digits of other scripts are not decimal digits here.
        {"\xd9\xa2\xd9\xa5", std::nullopt},
    };
    for (const auto& [text, expected] : cases) {
        SCOPED_TRACE(text);
        EXPECT_EQ(SoapAnswer::decimalInteger(QString::fromUtf8(text)), expected);
    }
}

TEST(XmlText, UnescapeUndoesOneLevelOfEntitiesAndCharacterReferences)
{
    const std::pair<const char*, const char*> cases[] = {
        {"&lt;dc:title&gt;Simon &amp;amp; Garfunkel&lt;/dc:title&gt;",
         "<dc:title>Simon &amp; Garfunkel</dc:title>"},
        {"&amp;lt;b&amp;gt;", "&lt;b&gt;"},
        {"Kids&apos; Den &quot;&#38;&quot; Bar &#x26;&#X3c;", "Kids' Den \"&\" Bar &<"},
        {"Caf&#233; &#x1F50A;", "Caf\u00e9 \U0001F50A"},
        // What is not one of those stands as it is.
        {"&nbsp; &LT; &#; &#x; &#0; &#xD800; &#-1; &#x110000; & x; &amp", "&nbsp; &LT; &#; &#x; "
                                                                          "&#0; &#xD800; &#-1; "
                                                                          "&#x110000; & x; &amp"},
        {"", ""},
    };
    for (const auto& [escaped, expected] : cases) {
        SCOPED_TRACE(escaped);
        EXPECT_EQ(XmlText::unescape(QString::fromUtf8(escaped)), QString::fromUtf8(expected));
    }
}

TEST(SonosDevice, AirplayReceiverIdIsTheTwelveCharactersAfterThePrefixUpperCased)
{
    const std::pair<const char*, std::optional<const char*>> cases[] = {
        {"RINCON_5CAAFD0A1B2C01400", "5CAAFD0A1B2C"},
        {"RINCON_5caafd0a1b2c01400", "5CAAFD0A1B2C"},
        {"RINCON_5cAaFd0A1b2C", "5CAAFD0A1B2C"}, // exactly 19 characters
        {"RINCON_5CAAFD0A1B2", std::nullopt},    // 18 characters
        {"RINCON_", std::nullopt},
        {"rincon_5CAAFD0A1B2C01400", std::nullopt},
        {"uuid:RINCON_5CAAFD0A1B2C01400", std::nullopt},
        {"XRINCON_5CAAFD0A1B2C01400", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto& [uid, expected] : cases) {
        SCOPED_TRACE(uid);
        SonosDevice device;
        device.uid = QString::fromUtf8(uid);
        if (expected)
            EXPECT_EQ(device.airplayReceiverID(), QString::fromUtf8(*expected));
        else
            EXPECT_EQ(device.airplayReceiverID(), std::nullopt);
    }
}

TEST(SonosDevice, LineInputIsATvOrLineInStreamByCaseSensitiveSubstring)
{
    const std::pair<const char*, bool> cases[] = {
        {"x-sonos-htastream:RINCON_5CAAFD0A1B2C01400:spdif", true},
        {"prefix-htastream-suffix", true},
        {"x-rincon-stream:RINCON_5CAAFD0A1B2C01400", true},
        {"x-sonos-HTASTREAM:RINCON_5CAAFD0A1B2C01400:spdif", false},
        {"X-RINCON-STREAM:RINCON_5CAAFD0A1B2C01400", false},
        {"x-rincon-queue:RINCON_5CAAFD0A1B2C01400#0", false},
        {"x-sonos-spotify:spotify%3atrack%3a1", false},
        {"hta-stream", false},
        {"", false},
    };
    for (const auto& [uri, expected] : cases) {
        SCOPED_TRACE(uri);
        SonosDevice::NowPlaying playing;
        playing.uri = QString::fromUtf8(uri);
        EXPECT_EQ(playing.isLineInput(), expected);
    }
}

// The good addresses are every socket test's.
TEST(SonosDevice, UrlRejectsWhatIsNoHost)
{
    for (const char* host : {"", "bad host", "[::1", "a:b"}) {
        SCOPED_TRACE(host);
        const SonosResult<QUrl> rejected =
            SonosDevice::url(QString::fromUtf8(host), QStringLiteral("/x"));
        ASSERT_FALSE(rejected);
        EXPECT_EQ(rejected.error(), SpeakerError{SonosError::badResponse()});
    }
}

// The whole envelope and its action header are checked byte for byte as they travel, in the
// device tests; arguments go in as they are given, unescaped.
TEST(SoapEnvelope, ArgumentsGoInUnescaped)
{
    const QString service = QStringLiteral("urn:schemas-upnp-org:service:RenderingControl:1");
    EXPECT_TRUE(SoapEnvelope::body(service, QStringLiteral("X"), QStringLiteral("<A>&</A>"))
                    .contains("<InstanceID>0</InstanceID><A>&</A></u:X>"));
}

TEST(SonosError, DescriptionsForTheLogAndTheUser)
{
    EXPECT_EQ(describe(SonosError::http(500)), QStringLiteral("HTTP 500"));
    EXPECT_EQ(describe(SonosError::http(-1)), QStringLiteral("the answer was not HTTP"));
    EXPECT_EQ(describe(SonosError::notFound(QStringLiteral("Kitchen"))),
              QStringLiteral("speaker \"Kitchen\" not found"));
    EXPECT_EQ(describe(SonosError::badResponse()), QStringLiteral("bad response from the speaker"));
    EXPECT_EQ(describe(TransportError{QNetworkReply::ConnectionRefusedError,
                                      QStringLiteral("Connection refused")}),
              QStringLiteral("Connection refused"));
}

} // namespace
