#include "tests/faults/Answers.h"

#include "tests/faults/CompressedTime.h"

namespace kvmpd::test {
namespace {

std::string Status(const std::string& status, const std::string& headers, const std::string& body) {
    return "HTTP/1.1 " + status + "\r\n" + headers + "Connection: close\r\n\r\n" + body;
}

std::string Length(size_t length) {
    return "Content-Length: " + std::to_string(length) + "\r\n";
}

std::string Names(const ManifestForm& form, const std::string& extension) {
    std::string text = "<SegmentList>";
    for (int i = 0; i < form.count; ++i) {
        if (form.hole != i) {
            text += "<SegmentURL media=\"" + std::to_string(form.first + i) + extension + "\"/>";
        }
    }
    return text + "</SegmentList>";
}

std::string Set(const ManifestForm& form, bool video) {
    const std::string list = form.template_ ? "<SegmentTemplate media=\"$Number$\" startNumber=\"1\"/>"
                                            : Names(form, video ? ".mp4" : ".m4a");
    return std::string("<AdaptationSet id=\"") + (video ? "2" : "1") + "\" mimeType=\"" + (video ? "video" : "audio") +
           "/mp4\"><Representation id=\"" + (video ? "720" : "1") + "\" bandwidth=\"100000\"" +
           (video ? " width=\"1280\" height=\"720\" frameRate=\"25\"" : "") + "><BaseURL>" +
           (video ? form.videoBase : form.audioBase) + "</BaseURL>" + list + "</Representation></AdaptationSet>";
}

size_t TooShort(const std::string& body) {
    return body.size() - body.size() / 4;
}

/// An error page, well formed. It names what was asked for by its first line, so that no two are alike.
std::string Page(FaultKind kind, const std::string& body) {
    const std::string title(kind == FaultKind::kHtml ? std::string_view("Welcome") : NameOf(kind));
    const std::string subject = body.starts_with('<') ? "manifest" : body.substr(0, body.find('\n'));
    return "<html><head><title>" + title + "</title></head><body><h1>" + title + "</h1><p>" + subject +
           "</p></body></html>";
}

std::string StatusText(FaultKind kind) {
    switch (kind) {
        case FaultKind::kStatus404:
            return "404 Not Found";
        case FaultKind::kStatus500:
            return "500 Internal Server Error";
        case FaultKind::kStatus503:
            return "503 Service Unavailable";
        default:
            return "200 OK";
    }
}

}  // namespace

std::string WriteManifest(const ManifestForm& form) {
    std::string text = "<?xml version=\"1.0\"?><MPD type=\"dynamic\"><Period>";
    if (!form.template_) {
        text += "<SegmentList startNumber=\"" + std::to_string(form.first) + "\" timescale=\"1000\"><SegmentTimeline>";
        for (int i = 0; i < form.count && !form.emptyTimeline; ++i) {
            text += "<S d=\"" + std::to_string(kSegment.count()) + "\"/>";
            if (form.padding != 0) {
                text += "<!--" + std::string(form.padding / static_cast<size_t>(form.count), 'x') + "-->";
            }
        }
        text += "</SegmentTimeline></SegmentList>";
    }
    return text + Set(form, false) + Set(form, true) + "</Period></MPD>";
}

bool ChangesOnlyTheText(FaultKind kind) {
    switch (kind) {
        case FaultKind::kMalformedXml:
        case FaultKind::kOtherShape:
        case FaultKind::kEmptyTimeline:
        case FaultKind::kEdgeBackwards:
        case FaultKind::kHole:
        case FaultKind::kNumberJump:
        case FaultKind::kHugeManifest:
            return true;
        default:
            return false;
    }
}

bool IsDisk(FaultKind kind) {
    return kind == FaultKind::kFolderGone || kind == FaultKind::kFileThere;
}

std::string GoodAnswer(const std::string& type, const std::string& body) {
    return Status("200 OK", "Content-Type: " + type + "\r\n" + Length(body.size()), body);
}

std::string RedirectAnswer(const std::string& location) {
    return Status("302 Found", "Location: " + location + "\r\n" + Length(0), "");
}

std::string HeadOnly(const std::string& body) {
    return Status("200 OK", Length(body.size()), "");
}

std::string HalfAnswer(const std::string& body) {
    return HeadOnly(body) + body.substr(0, body.size() / 2);
}

std::string WrongAnswer(FaultKind kind, const std::string& body) {
    switch (kind) {
        case FaultKind::kRedirectToOtherScheme:
            return RedirectAnswer("ftp://127.0.0.1:1/segment");
        case FaultKind::kEmptyBody:
            return Status("200 OK", Length(0), "");
        case FaultKind::kTruncatedBody:
            return HalfAnswer(body);
        case FaultKind::kBodyTooLong:
            return Status("200 OK", Length(TooShort(body)), body);
        case FaultKind::kNoContentLength:
            return Status("200 OK", "", body);
        case FaultKind::kWrongContentLength:
            return Status("200 OK", "Content-Length: many\r\n", body);
        default: {
            const std::string page = Page(kind, body);
            return Status(StatusText(kind), "Content-Type: text/html\r\n" + Length(page.size()), page);
        }
    }
}

std::string KeptOf(FaultKind kind, const std::string& body) {
    switch (kind) {
        case FaultKind::kStatus404:
        case FaultKind::kStatus500:
        case FaultKind::kStatus503:
        case FaultKind::kHtml:
            return Page(kind, body);
        case FaultKind::kEmptyBody:
            return {};
        case FaultKind::kBodyTooLong:
            return body.substr(0, TooShort(body));
        default:
            return body;
    }
}

}  // namespace kvmpd::test
