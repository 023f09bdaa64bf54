#include "viewing/Packeter.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <span>
#include <string_view>
#include <utility>

#include "Common/ProcessStateTree/ProcessStateTreeSDK/ProcessStateTreeEx.h"
#include "image/ImageCodec.h"
#include "interfaces/IWebServer.h"
#include "platform/text.h"
#include "platform/threads.h"
#include "runtime/trace/Trace.h"

namespace {

constexpr int SOCKET_ERROR = platform::kSocketError;

// The phone gets this before the first picture. It states no length: the answer ends with the connection.
constexpr std::string_view kHead = "HTTP/1.0 200 OK\r\nContent-Type: text/plain\r\n\r\n";
static_assert(kHead.size() == 45);

constexpr std::size_t kStackBytes = 0x40000;

// The largest picture that is decoded here; the codec decodes no larger one. A content that claims more
// pixels has no picture.
constexpr std::uint64_t kMaxPixels = std::uint64_t{1} << 26;

struct TaskMemoryFree {
    void operator()(std::uint8_t* pMemory) const noexcept { CoTaskMemFree(pMemory); }
};
using TaskMemory = std::unique_ptr<std::uint8_t, TaskMemoryFree>;

// The absolute value of a side, also of the smallest number.
std::uint64_t Magnitude(std::int32_t nSide) noexcept {
    return static_cast<std::uint64_t>(std::abs(std::int64_t{nSide}));
}

std::uint64_t PixelCount(const BITMAPINFOHEADER& oHeader) noexcept {
    return Magnitude(oHeader.biWidth) * Magnitude(oHeader.biHeight);
}

// Tells whether the packer takes the picture in the form in which the content holds it.
bool IsTakenAsItIs(const BITMAPINFOHEADER& oHeader) noexcept {
    return oHeader.biCompression == FrameCompressionYV12 ||
           (oHeader.biCompression == 0 && (oHeader.biBitCount == 8 || oHeader.biBitCount == 24));
}

// The header at the start of a content of 40 bytes or more; texts are aligned for it.
const BITMAPINFOHEADER& HeaderOf(const platform::Bstr& bstrContent) noexcept {
    return *reinterpret_cast<const BITMAPINFOHEADER*>(bstrContent.Get());
}

// Tells whether the content has a header and, if it goes to the packer as it is, all the bytes that the
// header promises: the packer is given no size.
bool IsWhole(const platform::Bstr& bstrContent) noexcept {
    const std::size_t nSize = bstrContent.ByteLength();
    if (nSize < sizeof(BITMAPINFOHEADER))
        return false;
    const BITMAPINFOHEADER& oHeader = HeaderOf(bstrContent);
    if (!IsTakenAsItIs(oHeader))
        return true;
    const std::uint64_t nPixels = PixelCount(oHeader);
    const std::uint64_t nPicture = oHeader.biCompression == FrameCompressionYV12
                                       ? nPixels + nPixels / 4 * 2
                                       : nPixels * (oHeader.biBitCount / 8U);
    return nPicture <= nSize - sizeof(BITMAPINFOHEADER);
}

// The text of the requests for pictures, with a line feed alone at each end. "QV-Auth: " is followed by the
// credentials block in base64; by nothing for an empty one.
std::u16string MakeRequestText(std::span<const std::uint8_t> credentials) {
    std::u16string text = u"GET video?original HTTP/1.1\n"
                          u"peer-info: 127.0.0.1:0\n"
                          u"User-Agent: Morrowstream\n"
                          u"QV-Auth: ";
    text += platform::FromUtf8(
        platform::Base64({reinterpret_cast<const char*>(credentials.data()), credentials.size()}));
    return text += u"\n\n";
}

// The pause between two pictures, whatever time the work on them takes. There is none for a rate of 0 or
// less, or for one that is no number.
std::uint32_t PauseMilliseconds(double fFrameRate) noexcept {
    constexpr std::uint32_t nMax = std::numeric_limits<std::uint32_t>::max();
    const double fPause = fFrameRate > 0 ? 1000.0 / fFrameRate : 0.0;
    return fPause < nMax ? static_cast<std::uint32_t>(fPause) : nMax;
}

} // namespace

// A picture that was decoded here. Its memory serves the next picture again.
struct CPacketer::SDecodedPicture {
    BITMAPINFOHEADER oHeader{};
    std::vector<std::uint8_t> oPlanes;

    bool Decode(const BITMAPINFOHEADER& oOriginal, std::string_view jpeg);
};

// Decodes a JPEG into a picture of the original's size. False when it cannot be decoded, and when it is
// larger in either direction: the decoder knows only the size that the stream states. A smaller one stands in
// the upper left corner of a black picture, so that nothing of the previous picture shows.
bool CPacketer::SDecodedPicture::Decode(const BITMAPINFOHEADER& oOriginal, std::string_view jpeg) {
    const std::uint64_t nPixels = PixelCount(oOriginal);
    if (nPixels > kMaxPixels || jpeg.size() > INT32_MAX)
        return false;
    const auto* const pJpeg = reinterpret_cast<const std::uint8_t*>(jpeg.data());
    const auto nJpegSize = static_cast<std::int32_t>(jpeg.size());
    const std::uint64_t w = Magnitude(oOriginal.biWidth);
    const std::uint64_t h = Magnitude(oOriginal.biHeight);
    std::int32_t nWidth = 0;
    std::int32_t nHeight = 0;
    ImageKind eKind{};
    if (ProbeJpeg(pJpeg, nJpegSize, nWidth, nHeight, eKind) != ImageOk || Magnitude(nWidth) > w ||
        Magnitude(nHeight) > h)
        return false;

    oHeader = MakeFrameHeader(static_cast<std::int32_t>(w), -static_cast<std::int32_t>(h), 1, 12,
                              FrameCompressionYV12, static_cast<std::uint32_t>(nPixels + nPixels / 2));
    oPlanes.resize(oHeader.biSizeImage);

    std::uint8_t* const pY = oPlanes.data();
    std::uint8_t* const pCr = pY + nPixels;
    std::uint8_t* const pCb = pCr + nPixels / 4;
    // The decoder leaves an odd last column or row of some streams out.
    if (Magnitude(nWidth) < w || Magnitude(nHeight) < h || (w | h) % 2 != 0) {
        std::fill(pY, pCr, std::uint8_t{0});
        std::fill(pCr, pY + oPlanes.size(), std::uint8_t{128});
    }
    const auto nYStep = oHeader.biWidth;
    return DecodeJpegYV12(pJpeg, nJpegSize, pY, nYStep, pCr, nYStep / 2, pCb, nYStep / 2) == ImageOk;
}

CPacketer::~CPacketer() {
    if (m_hSocket != 0)
        platform::closesocket(m_hSocket);
}

HRESULT CPacketer::Init(SOCKET hSocket, IConfiguration* pXmlConfig, BSTR bstrParams,
                        std::uint32_t nCredentialsSize, const std::uint8_t* pCredentials) {
    return StatusOf([&] {
        TRASSDO(hSocket && pXmlConfig, return E_POINTER);
        auto bstrParamsCopy = platform::Bstr::CopyOf(bstrParams);
        m_oCredentials.assign(pCredentials, pCredentials + nCredentialsSize);
        m_bstrParams = std::move(bstrParamsCopy);
        m_spXmlConfig = platform::ComPtr<IConfiguration>(pXmlConfig);
        m_hSocket = hSocket; // last: a failure above leaves it to the caller
        return S_OK;
    });
}

bool CPacketer::Start(std::unique_ptr<CPacketer> pPacketer) {
    const bool bStarted = platform::StartThread(&ThreadMain, pPacketer.get(), kStackBytes);
    if (bStarted)
        (void)pPacketer.release(); // the thread's now
    return bStarted;
}

std::uint32_t CPacketer::ThreadMain(void* pPacketer) {
    const platform::ApartmentScope apartment; // left when the packeter is gone
    const std::unique_ptr<CPacketer> pOwned(static_cast<CPacketer*>(pPacketer));
    (void)pOwned->Main();
    return 0;
}

HRESULT CPacketer::Main() {
    return StatusOf([&] {
        HRESULT hr = platform::CoCreateInstance(kMobileFramePackerClass, nullptr, platform::kContextAll,
                                                IMobileFramePacker::iid, m_spPacker.ReceiveVoid());
        if (FAILED(hr))
            LogPrintf(LOG_SITE(), kChannelMobile,
                      u"CPacketer::Main(): Failed to create mobile frame packer.");
        TRASSDO(SUCCEEDED(_ARE(hr)), return hr);
        hr = m_spPacker->Init(m_bstrParams.Get());
        if (FAILED(hr))
            LogPrintf(LOG_SITE(), kChannelMobile, u"CPacketer::Main(): Failed to init mobile frame packer.");
        TRASSDO(SUCCEEDED(_ARE(hr)), return hr);
        SPackerParams oParams{};
        hr = m_spPacker->GetParams(&oParams);
        TRASSDO(SUCCEEDED(_ARE(hr)), return hr);
        LogPrintf(LOG_SITE(), kChannelMobile, u"Start, frame rate: %f\n", oParams.fFrameRate);

        // Not looked at: a dead socket shows at the first send of data.
        (void)Send(kHead.data(), kHead.size());

        WebServer::SCurrentRequest oRequest{static_cast<std::uint32_t>(m_oCredentials.size()),
                                            m_oCredentials.data()};
        // Everything that is made after it is destroyed before it.
        const NSProcessStateTree::CThreadArgument oThreadArgument(kCurrentRequestArgument, &oRequest);
        const std::u16string strRequest = MakeRequestText(m_oCredentials);
        SDecodedPicture oDecoded;
        for (bool bMore = true;;) {
            hr = ShowPicture(strRequest, oDecoded, bMore);
            if (FAILED(hr))
                return hr;
            if (!bMore) {
                LogPrintf(LOG_SITE(), kChannelMobile, u"Successfuly finished.\n");
                return hr;
            }
            platform::Sleep(PauseMilliseconds(oParams.fFrameRate));
        }
    });
}

// Fetches a picture and sends what the packer makes of it. The content and the request live until this
// returns, since the packer may keep pointers into them; a viewer that sleeps holds neither.
HRESULT CPacketer::ShowPicture(const std::u16string& strRequest, SDecodedPicture& oDecoded, bool& bMore) {
    LOG_AS("CPacketer::Main");
    SFetched oOriginal;
    HRESULT hr = Fetch(kContentOriginal, strRequest, oOriginal);
    if (SUCCEEDED(hr) && !IsWhole(oOriginal.bstrContent))
        hr = E_FAIL;
    TRASSDO(SUCCEEDED(_ARE(hr)), return hr);
    const BITMAPINFOHEADER* pHeader = &HeaderOf(oOriginal.bstrContent);
    const std::uint8_t* pPlanes = reinterpret_cast<const std::uint8_t*>(pHeader + 1);
    SFetched oJpeg;
    if (!IsTakenAsItIs(*pHeader)) {
        hr = Fetch(kContentJpeg, strRequest, oJpeg);
        TRASSDO(SUCCEEDED(_ARE(hr)), return hr);
        if (!oDecoded.Decode(*pHeader, oJpeg.bstrContent.Bytes())) {
            LogPrintf(LOG_SITE(), kChannelMobile, u"CPacketer::Main() Failed to decode JPEG.");
            return E_FAIL;
        }
        oJpeg.bstrContent = nullptr;
        pHeader = &oDecoded.oHeader;
        pPlanes = oDecoded.oPlanes.data();
    }
    hr = m_spPacker->AppendFrame(pHeader, pPlanes);
    if (FAILED(hr))
        LogPrintf(LOG_SITE(), kChannelMobile, u"CPacketer::Main() Failed to append frame.");
    TRASSDO(SUCCEEDED(_ARE(hr)), return hr);

    std::uint8_t* pBytes = nullptr;
    std::uint32_t nBytes = 0;
    hr = m_spPacker->GetPackedData(&pBytes, &nBytes);
    TaskMemory pPacked(pBytes);
    if (hr == E_PENDING)
        return S_OK;
    if (FAILED(hr))
        LogPrintf(LOG_SITE(), kChannelMobile, u"CPacketer::Main() Failed to get packed data.");
    TRASSDO(SUCCEEDED(_ARE(hr)), return hr);
    const int res = Send(pBytes, nBytes);
    pPacked.reset();
    TRASSDO(SOCKET_ERROR != res, return platform::StatusFromError(platform::LastSocketError()));
    bMore = m_spPacker->HasMoreFrames() != 0;
    return hr;
}

// Asks the content object for one picture.
HRESULT CPacketer::Fetch(const char16_t* szPath, const std::u16string& strRequest, SFetched& oFetched) {
    const platform::Bstr bstrPath(szPath);
    oFetched.bstrRequest = platform::Bstr(strRequest);
    BSTR bstrGiven = oFetched.bstrRequest.Get();
    const HRESULT hr = m_spXmlConfig->GetContent(bstrPath.Get(), oFetched.bstrContent.Receive(), &bstrGiven);
    // The object may have put another text there; the old one is freed here.
    if (bstrGiven != oFetched.bstrRequest.Get())
        oFetched.bstrRequest = platform::Bstr::Adopt(bstrGiven);
    return hr;
}

// Sends all bytes, as a rule with one send, which blocks until the system has taken them. Only a part goes
// out when the connection fails on the way, or stalls for longer than the socket's maker allows; trying the
// rest then gives the reason for the failure, or leaves no gap in the stream.
int CPacketer::Send(const void* pBytes, std::size_t nSize) const noexcept {
    const auto* pNext = static_cast<const char*>(pBytes);
    do {
        const auto nPiece = static_cast<int>(std::min<std::size_t>(nSize, INT_MAX));
        const int res = platform::send(m_hSocket, pNext, nPiece, 0);
        if (res == SOCKET_ERROR)
            return SOCKET_ERROR;
        pNext += res;
        nSize -= static_cast<std::size_t>(res);
    } while (nSize > 0);
    return 0;
}
