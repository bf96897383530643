#include "kdbx/InnerHeader.h"

#include "kdbx/ByteWriter.h"
#include "kdbx/KdbxError.h"

namespace quillon::kdbx {
namespace {

enum FieldId : std::uint8_t { endOfHeader = 0, streamId = 1, streamKey = 2, binary = 3 };

} // namespace

InnerHeader parseInnerHeader(ByteReader& reader)
{
    InnerHeader inner;
    inner.streamKey = SecureBytes();
    for (;;) {
        const std::uint8_t id = reader.u8();
        const std::uint32_t length = reader.u32();
        const ByteView data = reader.bytes(length);
        switch (id) {
        case endOfHeader:
            if (inner.streamKey.empty())
                throw KdbxError::malformedInner("missing stream key");
            return inner;
        case streamId:
            if (data.size() < 4)
                throw KdbxError::malformedInner("stream id");
            inner.streamID = loadU32(data);
            break;
        case streamKey:
            inner.streamKey = SecureBytes::from(data);
            break;
        case binary:
            if (data.empty())
                throw KdbxError::malformedInner("binary");
            inner.binaries.push_back({data[0], SecureBytes::from(data.subspan(1))});
            break;
        default:
            inner.unknownFields.push_back({id, {data.begin(), data.end()}});
            break;
        }
    }
}

void serialiseInnerHeader(const InnerHeader& inner, SecureBytes& out)
{
    BasicByteWriter<SecureBytes> w(out);
    w.u8(streamId);
    w.u32(4);
    w.u32(inner.streamID);
    w.u8(streamKey);
    w.sized(inner.streamKey.span());
    for (const InnerBinary& b : inner.binaries) {
        QUILLON_CHECK(b.data.size() < 0xFFFFFFFFu);
        w.u8(binary);
        w.u32(static_cast<std::uint32_t>(b.data.size() + 1));
        w.u8(b.flags);
        w.bytes(b.data.span());
    }
    for (const HeaderField& f : inner.unknownFields) {
        w.u8(f.id);
        w.sized(f.data);
    }
    w.u8(endOfHeader);
    w.u32(0);
}

} // namespace quillon::kdbx
