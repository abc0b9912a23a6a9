#include "nvk/protocol/CProtocolLinkBuilder.h"

#include "nvk/data/CPropertyCollection.h"
#include "nvk/interchange/CJsonWriter.h"
#include "nvk/platform/ArrayValue.h"
#include "nvk/platform/Exception.h"
#include "nvk/platform/Util.h"
#include "nvk/platform/Value.h"

namespace nvk {

using tovan::Exception;
using tovan::iProperty;
using tovan::StringArrayValue;
using tovan::StringValue;
using tovan::WString;

namespace {

constexpr const char* kClass = "CProtocolLinkBuilder";

tovan::Ptr<tovan::iPropertyCollection> newCollection(const tovan::iPropertyCollection* source) {
    tovan::Ptr<tovan::iPropertyCollection> c(CPropertyCollection::newInstance());
    if (source) c->assignFrom(source, true);
    return c;
}

WString slashesForBackslashes(const WString& text) {
    if (text.isNull()) return text;
    std::u16string s = text.str();
    for (char16_t& c : s)
        if (c == u'\\') c = u'/';
    return WString(std::move(s));
}

bool startsWith(std::u16string_view text, std::u16string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

/// Calls `each(name, value)` for every value of the parameter: once for a single value,
/// once per element for an array.
template <class Each>
void forEachValue(const iProperty& p, Each&& each) {
    const tovan::Value& v = p.getValue();
    if (auto* array = dynamic_cast<const StringArrayValue*>(&v)) {
        for (size_t i = 0; i < array->size(); ++i) each(p.getName().view(), array->get(i).view());
    } else {
        WString text = v.toString();
        each(p.getName().view(), text.view());
    }
}

}  // namespace

CProtocolLinkBuilder::CProtocolLinkBuilder(const WString& serverBase, const WString& protocolIdentifier)
    : protocol_(slashesForBackslashes(protocolIdentifier)), serverBase_(serverBase), parameters_(newCollection(nullptr)) {}

CProtocolLinkBuilder::CProtocolLinkBuilder(const CProtocolLinkBuilder& other)
    : runAs_(other.runAs_),
      protocol_(other.protocol_),
      progressMessage_(other.progressMessage_),
      sessionID_(other.sessionID_),
      serverBase_(other.serverBase_),
      link_(other.link_),
      arrayDelimiter_(other.arrayDelimiter_),
      resultStyleValue_(other.resultStyleValue_),
      resultStyle_(other.resultStyle_),
      queryParamCount_(other.queryParamCount_),
      parameters_(newCollection(other.parameters_.get())) {}

CProtocolLinkBuilder& CProtocolLinkBuilder::operator=(const CProtocolLinkBuilder& other) {
    if (this != &other) {
        CProtocolLinkBuilder copy(other);  // the only step that can fail comes first
        runAs_ = copy.runAs_;
        protocol_ = std::move(copy.protocol_);
        progressMessage_ = std::move(copy.progressMessage_);
        sessionID_ = std::move(copy.sessionID_);
        serverBase_ = std::move(copy.serverBase_);
        link_ = std::move(copy.link_);
        arrayDelimiter_ = std::move(copy.arrayDelimiter_);
        resultStyleValue_ = std::move(copy.resultStyleValue_);
        resultStyle_ = copy.resultStyle_;
        queryParamCount_ = copy.queryParamCount_;
        parameters_ = std::move(copy.parameters_);
    }
    return *this;
}

CProtocolLinkBuilder::~CProtocolLinkBuilder() = default;

void CProtocolLinkBuilder::SetParameter(const WString& name, const WString& value) {
    StringValue v(value.isNull() ? WString::empty() : value);
    if (iProperty* p = parameters_->find(name))
        p->setValue(v);
    else
        parameters_->define(name, v);
}

void CProtocolLinkBuilder::SetParameter(const WString& name, const std::vector<WString>& values) {
    StringArrayValue v;
    for (const WString& value : values) v.append(value.isNull() ? WString::empty() : value);
    if (iProperty* p = parameters_->find(name))
        p->setValue(v);
    else
        parameters_->define(name, v);
}

void CProtocolLinkBuilder::SetRunUser(RunAsUser kind, const WString& sessionID) {
    if (kind == RunAsCreator && sessionID.isNull())
        throw Exception(kClass, "SetRunUser", u"A session ID must be registered to run as the protocol link creator");
    runAs_ = kind;
    sessionID_ = kind == RunAsCreator ? sessionID : WString::empty();
}

void CProtocolLinkBuilder::SetResultStyle(ResultStyle style, const WString& value) {
    resultStyle_ = style;
    resultStyleValue_ = value.isNull() ? WString::empty() : value;
}

void CProtocolLinkBuilder::SetProgressMessage(const WString& text) {
    progressMessage_ = text.isNull() ? WString::empty() : text;
}

void CProtocolLinkBuilder::SetArrayDelimiter(const WString& text) {
    arrayDelimiter_ = text.isNull() ? WString::empty() : text;
}

void CProtocolLinkBuilder::AppendQueryParam(std::u16string& out, std::u16string_view name, std::u16string_view value) {
    out.push_back(queryParamCount_ == 0 ? u'?' : u'&');
    tovan::util::urlEncodeComponent(name, out);
    out.push_back(u'=');
    tovan::util::urlEncodeComponent(value, out);
    ++queryParamCount_;
}

void CProtocolLinkBuilder::AppendScheme(std::u16string& out) const {
    if (!startsWith(serverBase_.view(), u"http")) out += u"https://";
    out += serverBase_.view();
}

void CProtocolLinkBuilder::AppendParameters(std::u16string& out) {
    for (int i = 0; i < parameters_->getSize(); ++i)
        forEachValue(parameters_->get(i), [&](std::u16string_view n, std::u16string_view v) { AppendQueryParam(out, n, v); });
}

void CProtocolLinkBuilder::AppendWebFormParameters(std::u16string& out) {
    // Names and texts quoted and escaped as the JSON writer writes them, by hand because
    // the writer refuses an empty member name, which a parameter may have.
    std::u16string object = u"{";
    for (int i = 0; i < parameters_->getSize(); ++i) {
        const iProperty& p = parameters_->get(i);
        if (i) object += u',';
        CJsonWriter::escape(p.getName().view(), object);
        object += u':';
        if (auto* array = dynamic_cast<const StringArrayValue*>(&p.getValue())) {
            object += u'[';
            for (size_t k = 0; k < array->size(); ++k) {
                if (k) object += u',';
                CJsonWriter::escape(array->get(k).view(), object);
            }
            object += u']';
        } else {
            CJsonWriter::escape(p.getValue().toString().view(), object);
        }
    }
    object += u'}';
    AppendQueryParam(out, u"parameters", object);
}

void CProtocolLinkBuilder::ConstructAsCreator(std::u16string& out) {
    AppendScheme(out);
    out += u"/auth/rj/launchjob";
    AppendQueryParam(out, u"_compat", u"1");
    AppendQueryParam(out, u"_protocol", protocol_.view());
    if (!progressMessage_.isEmpty()) AppendQueryParam(out, u"_progressmessage", progressMessage_.view());
    if (!arrayDelimiter_.isEmpty()) AppendQueryParam(out, u"_arraydelim", arrayDelimiter_.view());
    AppendParameters(out);
    AppendQueryParam(out, u"_session", sessionID_.view());
}

const WString& CProtocolLinkBuilder::Construct() {
    if (protocol_.isEmpty()) throw Exception(kClass, "Construct", u"No protocol identifier specified");
    std::u16string out;
    out.reserve(link_.length() + 16);
    queryParamCount_ = 0;
    if (runAs_ == RunAsCreator) {
        ConstructAsCreator(out);
    } else {
        const bool anonymous = runAs_ == RunAsAnonymous;
        AppendScheme(out);
        // The identifier is encoded wherever it goes, though the format appends it as it
        // is: a "#" or "&" in it would cut the query short and drop the parameters.
        if (resultStyle_ == WebForm) {
            out += u"/webform/?protocol=";
            tovan::util::urlEncodeComponent(protocol_.view(), out);
            ++queryParamCount_;
            AppendQueryParam(out, u"container", u"true");
            AppendQueryParam(out, u"timeout", u"600");
            AppendWebFormParameters(out);
        } else {
            if (startsWith(protocol_.view(), u"protocols/")) {
                out += anonymous ? u"/protocols/anon/" : u"/protocols/";
                std::u16string_view path = protocol_.view();
                for (size_t start = 0;;) {
                    size_t slash = path.find(u'/', start);
                    tovan::util::urlEncodeComponent(path.substr(start, slash - start), out);
                    if (slash == std::u16string_view::npos) break;
                    out.push_back(u'/');
                    start = slash + 1;
                }
            } else {
                out += anonymous ? u"/auth/anon/launchjob?$protocol=" : u"/auth/launchjob?$protocol=";
                tovan::util::urlEncodeComponent(protocol_.view(), out);
                ++queryParamCount_;
            }
            switch (resultStyle_) {
                case StreamData:
                    AppendQueryParam(out, u"$streamdata", u"*");
                    if (!resultStyleValue_.isEmpty()) AppendQueryParam(out, u"$format", resultStyleValue_.view());
                    break;
                case StreamNamedData: AppendQueryParam(out, u"$streamdata", resultStyleValue_.view()); break;
                case StreamFile: AppendQueryParam(out, u"$streamfile", resultStyleValue_.view()); break;
                case RedirectFile: AppendQueryParam(out, u"$redirectfile", resultStyleValue_.view()); break;
                default: break;  // another style sends no result parameter
            }
        }
        if (!progressMessage_.isEmpty()) AppendQueryParam(out, u"$progressmessage", progressMessage_.view());
        if (!arrayDelimiter_.isEmpty()) AppendQueryParam(out, u"$arraydelim", arrayDelimiter_.view());
        AppendParameters(out);
    }
    link_ = WString(std::move(out));
    if (link_.length() > kMaxPortableLength)
        Exception::warn(u"The length of the generated protocol link exceeds 2083 characters, and so may not work in "
                        u"Internet Explorer.");
    return link_;
}

}  // namespace nvk
