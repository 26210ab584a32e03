// Whole files: fltInfo describes one, fltLoad loads it, fltSave writes one.
#include "API/Filters/Fax/Fax.h"

#include "API/Filters/Fax/Common/Tif_faxx/streams/description.h"
#include "API/Filters/Fax/file.h"

#include <array>
#include <cstring>

namespace faxx {
namespace {

constexpr int64_t kHeaderDataOffset = 512; // of the compressed lines of a header-prefixed file

// The part of the header that is read.
using Header = std::array<uint8_t, 20>;
constexpr uint8_t kMagic[] = {0xDC, 0xDC, 0x00, 0x00};
constexpr size_t kHeaderHeight = 6;
constexpr size_t kHeaderWidth = 8;
constexpr size_t kHeaderCoding = 12; // and bit order in the byte after it
constexpr size_t kHeaderYResolution = 16;
constexpr size_t kHeaderXResolution = 18;
constexpr uint8_t kCodingG3 = 2;
constexpr uint8_t kOrderReversed = 0;

constexpr char kNameG3[] = "CCITT Group 3 Fax";
constexpr char kNameG4[] = "CCITT Group 4 Fax";
static_assert(sizeof kNameG3 == sizeof _FILEINFOA::Name && sizeof kNameG4 == sizeof _FILEINFOA::Name);

uint16_t LittleEndian16(const Header& header, size_t offset) {
    return static_cast<uint16_t>(header[offset] | header[offset + 1] << 8);
}

void FillFileInfo(_FILEINFOA* info, const char* name, int format, uint32_t width, int height,
                  int bitsPerPixel, int orientation, int xResolution, int yResolution) {
    info->Format = format;
    std::memcpy(info->Name, name, sizeof info->Name);
    info->BitsPerPixel = bitsPerPixel;
    info->Flags |= FILEINFO_DESCRIBED;
    info->Orientation = orientation;
    info->Reserved572 = 0;
    info->Width = width;
    info->Height = height;
    const uint32_t rowBytes = (width * static_cast<uint32_t>(bitsPerPixel) + 7) / 8;
    info->ImageSize = static_cast<uint64_t>(height) * rowBytes;
    info->XResolution = xResolution;
    info->YResolution = yResolution;
}

// The name of a described stream's format, null for one that files do not hold.
const char* FormatName(int format) {
    switch (format) {
    case FORMAT_FAX_G3_1D:
    case FORMAT_FAX_G3_2D:
        return kNameG3;
    case FORMAT_FAX_G4:
        return kNameG4;
    default:
        return nullptr;
    }
}

// A raw stream: found at one of the first offsets of the file, which stands behind the bytes of a header. The
// file is closed before its description is filled in: when that throws, nothing was described.
int DescribeRawStream(File& file, _FILEINFOA* info, _LOADDISPATCH* loadDispatch) {
    const bool probeForLoad = loadDispatch && loadDispatch->LoadInfoValid;
    if (!probeForLoad && !(info->Flags & FILEINFO_PROBE_RAW))
        return ERROR_FILE_FORMAT;
    K_RedirectedSeek(file.Handle(), -static_cast<long long>(sizeof(Header)), 1);

    _LOADINFO own{};
    own.Format = own.Width = own.Height = -1;
    _LOADINFO* stream = &own;
    if (loadDispatch) {
        loadDispatch->LoadInfoValid = 1;
        stream = &loadDispatch->LoadInfo;
    }
    const int status = K_LoadRawFax(nullptr, file.Handle(), stream, nullptr, nullptr, nullptr, 1, nullptr);
    file.Close();
    if (status != SUCCESS)
        return status;
    const char* name = FormatName(stream->Format);
    if (!name)
        return FAILURE;
    FillFileInfo(info, name, stream->Format, static_cast<uint32_t>(stream->Width), stream->Height,
                 stream->BitsPerPixel, OrientationFromFlags(stream->Flags), stream->XResolution,
                 stream->YResolution);
    return SUCCESS;
}

int Describe(File& file, _FILEINFOA* info, _LOADDISPATCH* loadDispatch) {
    Header header;
    if (!file.Read(header.data(), header.size()))
        return ERROR_FILE_READ;
    if (std::memcmp(header.data(), kMagic, sizeof kMagic) != 0)
        return DescribeRawStream(file, info, loadDispatch);
    FillFileInfo(info, kNameG4, FORMAT_FAX_G4_HEADER, LittleEndian16(header, kHeaderWidth),
                 LittleEndian16(header, kHeaderHeight), 1, 1, LittleEndian16(header, kHeaderXResolution),
                 LittleEndian16(header, kHeaderYResolution));
    return SUCCESS;
}

// The stream behind a header: what the describe step left in the file information, and the coding and bit
// order from the header itself.
int DescribeHeaderStream(File& file, const _FILEINFOA* info, _LOADINFO* stream) {
    stream->Width = static_cast<int32_t>(info->Width);
    stream->Height = info->Height;
    stream->BitsPerPixel = info->BitsPerPixel;
    stream->XResolution = info->XResolution;
    stream->YResolution = info->YResolution;
    stream->Offset = kHeaderDataOffset;
    stream->Flags = LOADINFO_ORIENTATION_1;

    uint8_t coding;
    uint8_t bitOrder;
    K_RedirectedSeek(file.Handle(), kHeaderCoding, 0);
    if (!file.Read(&coding, 1))
        return ERROR_FILE_READ;
    stream->Format = coding == kCodingG3 ? FORMAT_FAX_G3_1D : FORMAT_FAX_G4;
    if (!file.Read(&bitOrder, 1))
        return ERROR_FILE_READ;
    if (bitOrder == kOrderReversed)
        stream->Flags |= LOADINFO_REVERSED_BITS;
    return SUCCESS;
}

} // namespace
} // namespace faxx

using namespace faxx;

int fltInfoFAX(_INFODISPATCH* dispatch) {
    if (!dispatch->FileInfo)
        return ERROR_NULL_PTR;
    File file(dispatch->FileName, kForReading);
    if (!file.IsOpen())
        return ERROR_FILE_OPEN;
    const int status = Describe(file, dispatch->FileInfo, dispatch->LoadDispatch);
    file.Close();
    return status;
}

int fltLoadFAX(_LOADDISPATCH* dispatch) {
    if (!dispatch->Bitmap || !dispatch->FileInfo)
        return ERROR_NULL_PTR;
    const int bitsPerPixel = dispatch->Bitmap->BitsPerPixel;
    File file(dispatch->FileName, kForReading);
    if (!file.IsOpen())
        return ERROR_FILE_OPEN;
    int status = SUCCESS;
    if (dispatch->FileInfo->Format == FORMAT_FAX_G4_HEADER)
        status = DescribeHeaderStream(file, dispatch->FileInfo, &dispatch->LoadInfo);
    if (status == SUCCESS)
        status = K_LoadRawFax(dispatch, file.Handle(), &dispatch->LoadInfo, dispatch->FileInfo,
                              dispatch->Bitmap, dispatch->RowCallback, bitsPerPixel, dispatch->UserData);
    file.Close();
    return status;
}

int fltSaveFAX(_SAVEDISPATCH* dispatch) {
    if (dispatch->BitsPerPixel != 1)
        return ERROR_BITS_PER_PIXEL;
    if (dispatch->Format == FORMAT_FAX_G4_HEADER)
        return ERROR_FORMAT_NOT_WRITABLE;
    File file(dispatch->FileName, kForWriting);
    if (!file.IsOpen())
        return ERROR_FILE_CREATE;
    unsigned flags = 0;
    if (const _SAVEOPTIONS* options = dispatch->Options) {
        if (options->OutputBits & SAVEOPTION_REVERSE_BITS)
            flags |= FAX_REVERSE_BITS;
        if (options->FaxBits & SAVEOPTION_FAX_ALIGN_EOL)
            flags |= FAX_ALIGN_EOL;
    }
    const int status =
        K_SaveRawFax(dispatch, file.Handle(), dispatch->Bitmap, dispatch->BitsPerPixel,
                     static_cast<unsigned>(dispatch->Format), dispatch->CallbackParam, dispatch->UserData1,
                     dispatch->UserData2, nullptr, flags, nullptr, nullptr);
    file.Close();
    return status;
}

int fltInfo(_INFODISPATCH* dispatch) {
    return dispatch ? fltInfoFAX(dispatch) : static_cast<int>(ERROR_NULL_PTR);
}

int fltLoad(_LOADDISPATCH* dispatch) {
    return dispatch ? fltLoadFAX(dispatch) : static_cast<int>(ERROR_NULL_PTR);
}

int fltSave(_SAVEDISPATCH* dispatch) {
    return dispatch ? fltSaveFAX(dispatch) : static_cast<int>(ERROR_NULL_PTR);
}
