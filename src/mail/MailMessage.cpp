#include "mail/MailMessage.h"

#include "core/Platform.h"

#include <gmime/gmime.h>

#include <fcntl.h>
#include <memory>
#include <mutex>
#include <stdexcept>

namespace vellira {

namespace {

// GMime is set up once for the process, before its first message.
void initialiseGmime() {
    static std::once_flag once;
    std::call_once(once, [] { g_mime_init(); });
}

struct Unref {
    void operator()(gpointer object) const { g_object_unref(object); }
};
template <typename T>
using Owned = std::unique_ptr<T, Unref>;

// Line ends as one "\n" each; GMime writes them as CRLF.
std::string unixLines(std::string text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\r') {
            out += '\n';
            if (i + 1 < text.size() && text[i + 1] == '\n') ++i;
        } else {
            out += text[i];
        }
    }
    return out;
}

// The domain of an address, for the Message-ID.
std::string domainOf(const std::string& address) {
    const auto at = address.rfind('@');
    const std::string domain = at == std::string::npos ? std::string() : address.substr(at + 1);
    return domain.empty() ? "vellira-batch.invalid" : domain;
}

}  // namespace

std::string buildMessage(const MailContent& content) {
    initialiseGmime();
    Owned<GMimeMessage> message(g_mime_message_new(TRUE));
    g_mime_message_add_mailbox(message.get(), GMIME_ADDRESS_TYPE_FROM, content.fromName.c_str(),
                               content.fromAddress.c_str());
    g_mime_message_add_mailbox(message.get(), GMIME_ADDRESS_TYPE_TO, nullptr, content.to.c_str());
    for (const auto& cc : content.cc)
        g_mime_message_add_mailbox(message.get(), GMIME_ADDRESS_TYPE_CC, nullptr, cc.c_str());
    g_mime_message_set_subject(message.get(), content.subject.c_str(), "utf-8");
    GDateTime* now = g_date_time_new_now_local();
    g_mime_message_set_date(message.get(), now);
    g_date_time_unref(now);
    char* id = g_mime_utils_generate_message_id(domainOf(content.fromAddress).c_str());
    g_mime_message_set_message_id(message.get(), id);
    g_free(id);

    Owned<GMimeTextPart> text(g_mime_text_part_new_with_subtype(content.html ? "html" : "plain"));
    // GMime labels the text with the charset it is written in.
    g_mime_text_part_set_text(text.get(), unixLines(content.body).c_str());
    g_mime_part_set_content_encoding(GMIME_PART(text.get()), GMIME_CONTENT_ENCODING_QUOTEDPRINTABLE);

    const auto slash = content.attachmentType.find('/');
    Owned<GMimePart> file(g_mime_part_new_with_type(content.attachmentType.substr(0, slash).c_str(),
                                                    content.attachmentType.substr(slash + 1).c_str()));
    g_mime_part_set_filename(file.get(), pathText(content.attachment.filename()).c_str());
    GError* error = nullptr;
    Owned<GMimeStream> stream(g_mime_stream_fs_open(pathText(content.attachment).c_str(), O_RDONLY, 0, &error));
    if (!stream) {
        const std::string why = error ? error->message : "cannot open";
        if (error) g_error_free(error);
        throw std::runtime_error("cannot read the attachment " + pathText(content.attachment) + ": " + why);
    }
    Owned<GMimeDataWrapper> data(g_mime_data_wrapper_new_with_stream(stream.get(), GMIME_CONTENT_ENCODING_DEFAULT));
    g_mime_part_set_content(file.get(), data.get());
    g_mime_part_set_content_encoding(file.get(), GMIME_CONTENT_ENCODING_BASE64);

    Owned<GMimeMultipart> mixed(g_mime_multipart_new_with_subtype("mixed"));
    g_mime_multipart_add(mixed.get(), GMIME_OBJECT(text.get()));
    g_mime_multipart_add(mixed.get(), GMIME_OBJECT(file.get()));
    g_mime_message_set_mime_part(message.get(), GMIME_OBJECT(mixed.get()));

    GMimeFormatOptions* options = g_mime_format_options_clone(nullptr);
    g_mime_format_options_set_newline_format(options, GMIME_NEWLINE_FORMAT_DOS);
    Owned<GMimeStream> out(g_mime_stream_mem_new());
    const ssize_t written = g_mime_object_write_to_stream(GMIME_OBJECT(message.get()), options, out.get());
    g_mime_format_options_free(options);
    if (written < 0) throw std::runtime_error("cannot read the attachment " + pathText(content.attachment));
    const GByteArray* bytes = g_mime_stream_mem_get_byte_array(GMIME_STREAM_MEM(out.get()));
    return std::string(reinterpret_cast<const char*>(bytes->data), bytes->len);
}

}  // namespace vellira
