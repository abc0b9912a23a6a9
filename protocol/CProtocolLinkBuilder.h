#pragma once
// Builds the URL that launches a protocol on a server with given parameter values and
// returns its results in a chosen style:
//
//   CProtocolLinkBuilder b(u"server.example:9943", u"Protocols\\Demo\\Score");
//   b.SetParameter(u"Threshold", u"0.5");
//   b.SetParameter(u"Tags", std::vector<WString>{u"a", u"b"});
//   b.SetResultStyle(CProtocolLinkBuilder::StreamFile, u"report.pdf");
//   const WString& url = b.Construct();
//   // https://server.example:9943/auth/launchjob?$protocol=Protocols%2FDemo%2FScore
//   //   &%24streamfile=report.pdf&Threshold=0.5&Tags=a&Tags=b
//
// Every query name and value goes through util::urlEncodeComponent (UTF-8, everything but
// A-Z a-z 0-9 - _ . ~ percent-encoded). Choices the link format leaves open:
// - A server base without a scheme gets "https://"; one that begins with "http" (exactly
//   those letters, in lower case) is used as it is. The base is otherwise sent as given: a
//   slash at its end stays, and the path then starts with "//".
// - The protocol identifier is encoded too, though the link format appends it as it is:
//   after "$protocol=" and "protocol=" whole ("/" too); after "/protocols/" it is a path, so
//   each of its "/"-separated segments is encoded and the slashes stay. Left as it is, a "#"
//   in it would end the query, and the job would run without the parameters after it.
// - An array parameter is sent as one name=value pair per element under the same name, in
//   every form (the run-as-creator form too); an empty array sends nothing. The web form
//   gets the parameters twice: in its "parameters" object and, like every style, as query
//   pairs after it. In the web-form "parameters" object an array is a JSON array of
//   strings, a single value a JSON string:
//   {"Threshold":"0.5","Tags":["a","b"]}, quoted and escaped as the library's JSON writer
//   escapes strings (quotes, backslashes and control characters), an empty name as "", and
//   that text is then encoded as one query value.
// - Parameter names compare folding A-Z (they live in a property collection): setting a name
//   again replaces its value and keeps its place.
// - A null text is sent as an empty one.
//
// Failures raise tovan::Exception (class "CProtocolLinkBuilder") and leave the builder as
// it was; a link over 2083 characters only warns through Exception::warn.
#include <vector>

#include "nvk/platform/Export.h"
#include "nvk/platform/Object.h"
#include "nvk/platform/String.h"
#include "nvk/platform/iPropertyCollection.h"

namespace nvk {

class NVK_EXPORT CProtocolLinkBuilder {
public:
    /// Who the launched job runs as.
    enum RunAsUser : int {
        RunAsCreator = 1,        // the link's creator, through a registered session
        RunAsAuthenticated = 2,  // the user who opens the link (default)
        RunAsAnonymous = 3,      // nobody: the server's anonymous launch path
    };
    /// How the job's results come back.
    enum ResultStyle : int {
        StreamData = 1,       // the job's data ("$streamdata=*"; the style value, if any, is "$format")
        StreamNamedData = 2,  // the data named by the style value
        StreamFile = 3,       // the file named by the style value
        RedirectFile = 4,     // a redirect to the file named by the style value
        WebForm = 5,          // the protocol's web-form page
    };

    /// Every "\" of the identifier becomes "/".
    CProtocolLinkBuilder(const tovan::WString& serverBase, const tovan::WString& protocolIdentifier);
    /// Copies every field; the copy has its own parameter collection.
    CProtocolLinkBuilder(const CProtocolLinkBuilder& other);
    CProtocolLinkBuilder& operator=(const CProtocolLinkBuilder& other);
    ~CProtocolLinkBuilder();

    /// Stores a single text value under `name`; an empty name is stored too, and sent as
    /// "=VALUE".
    void SetParameter(const tovan::WString& name, const tovan::WString& value);
    /// Stores an array of texts (a string-array value) under `name`.
    void SetParameter(const tovan::WString& name, const std::vector<tovan::WString>& values);
    /// Kind 1 needs a session ID: a null one raises Exception "A session ID must be registered
    /// to run as the protocol link creator"; an empty one is stored and sent as it is. Other
    /// kinds clear the stored ID. A kind outside 1 to 3 is stored as it is and runs as the
    /// user who opens the link.
    void SetRunUser(RunAsUser kind, const tovan::WString& sessionID = tovan::WString());
    /// A null or empty value clears the stored one. A style outside 1 to 5 is stored as it
    /// is: its link has no result parameter.
    void SetResultStyle(ResultStyle style, const tovan::WString& value = tovan::WString());
    void SetProgressMessage(const tovan::WString& text);
    void SetArrayDelimiter(const tovan::WString& text);

    /// Builds the link. The text is the builder's and stays valid until the next call.
    /// A null or empty identifier raises Exception "No protocol identifier specified".
    const tovan::WString& Construct();

    const tovan::WString& getServerBase() const { return serverBase_; }
    const tovan::WString& getProtocolIdentifier() const { return protocol_; }
    RunAsUser getRunUser() const { return runAs_; }
    const tovan::WString& getSessionID() const { return sessionID_; }
    ResultStyle getResultStyle() const { return resultStyle_; }
    const tovan::WString& getResultStyleValue() const { return resultStyleValue_; }
    const tovan::WString& getProgressMessage() const { return progressMessage_; }
    const tovan::WString& getArrayDelimiter() const { return arrayDelimiter_; }
    /// Name -> StringValue or StringArrayValue, in the order first set.
    const tovan::iPropertyCollection& getParameters() const { return *parameters_; }
    /// The last link built (empty before the first Construct).
    const tovan::WString& getLink() const { return link_; }

    /// Links longer than this many characters may not open in some browsers.
    static constexpr size_t kMaxPortableLength = 2083;

private:
    // Each appends to the link being built; the finished text replaces link_ at the end.
    void AppendQueryParam(std::u16string& out, std::u16string_view name, std::u16string_view value);
    void AppendScheme(std::u16string& out) const;
    void AppendParameters(std::u16string& out);
    void AppendWebFormParameters(std::u16string& out);
    void ConstructAsCreator(std::u16string& out);

    // Declaration order as the fields are listed for the format.
    RunAsUser runAs_ = RunAsAuthenticated;
    tovan::WString protocol_;
    tovan::WString progressMessage_ = tovan::WString::empty();
    tovan::WString sessionID_ = tovan::WString::empty();
    tovan::WString serverBase_;
    tovan::WString link_ = tovan::WString::empty();
    tovan::WString arrayDelimiter_ = tovan::WString::empty();
    tovan::WString resultStyleValue_ = tovan::WString::empty();
    ResultStyle resultStyle_ = StreamData;
    int queryParamCount_ = 0;
    tovan::Ptr<tovan::iPropertyCollection> parameters_;
};

}  // namespace nvk
