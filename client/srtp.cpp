// SRTP requests: on and off for audio and video, receive and transmit.
// reqNo 26, 27 (audio) and 120, 121 (video, no kind row). The library checks
// cipher, authentication and key length and copies the key; it never logs it.
#include "request.h"

namespace {

struct tSrtpParams {
    int32_t on;            // 120
    int32_t audio;         // 124
    int32_t audioParam;    // 128
    int32_t cipher_type;   // 132
    int32_t reserved1;     // 136
    int32_t auth_type;     // 140
    int32_t reserved2;     // 144
    int32_t reserved3;     // 148
    int32_t reserved4;     // 152: never written
    unsigned char key[64]; // 156
};

struct tSrtpReq {
    tMediaReq hdr;
    tSrtpParams srtp;
};
static_assert(sizeof(tSrtpReq) == 220, "SRTP record is 220 bytes");
static_assert(offsetof(tSrtpReq, srtp.audioParam) == 128, "audioParam at 128");
static_assert(offsetof(tSrtpReq, srtp.cipher_type) == 132, "cipher_type at 132");
static_assert(offsetof(tSrtpReq, srtp.auth_type) == 140, "auth_type at 140");
static_assert(offsetof(tSrtpReq, srtp.key) == 156, "key at 156");

int enableSrtp(const char* fn, int sock, int channel, int reqNo, bool audio, int cipher_type, int auth_type,
               const void* key, int keyLen, int audioParam)
{
    tSrtpReq req{};
    VX_CHECK_FN(fn, (cipher_type==NULL_CIPHER||cipher_type==AES_128_ICM||cipher_type==ARIA_196_ICM||cipher_type==ARIA_128_ICM), VX_ERR_ARGUMENT);
    VX_CHECK_FN(fn, (auth_type==NULL_AUTH||auth_type==HMAC_SHA1), VX_ERR_ARGUMENT);
    // keyLen counts as unsigned: a negative length is too large as well.
    if (!(static_cast<unsigned>(keyLen) <= sizeof(req.srtp.key))) {
        mlibLog("keyLen<=sizeof(req.srtp.key)(%s:%d)\n", fn, __LINE__);
        return 0;
    }
    // A null key with a length to copy is refused like any other bad
    // argument, instead of being read through; keyLen 0 reads nothing.
    VX_CHECK_FN(fn, (key!=NULL||keyLen==0), VX_ERR_ARGUMENT);
    tResp2App resp = vxNoAnswer();
    memset(req.srtp.key, 0, sizeof req.srtp.key);
    if (keyLen > 0)
        memcpy(req.srtp.key, key, static_cast<size_t>(keyLen));
    req.hdr.reqNo = reqNo;
    req.hdr.channel = channel;
    req.srtp.on = 1;
    req.srtp.audio = audio ? 1 : 0;
    if (audio)
        req.srtp.audioParam = audioParam;
    req.srtp.cipher_type = cipher_type;
    req.srtp.reserved1 = 0;
    req.srtp.auth_type = auth_type;
    req.srtp.reserved2 = 0;
    req.srtp.reserved3 = 0;
    VX_RETURN_STRICT_FN(fn, Send2VoxalisByApp(sock,&req,sizeof(req),&resp));
}

int disableSrtp(const char* fn, int sock, int channel, int reqNo, bool audio, int audioParam)
{
    tSrtpReq req{};
    tResp2App resp = vxNoAnswer();
    req.hdr.reqNo = reqNo;
    req.hdr.channel = channel;
    req.srtp.on = 0;
    req.srtp.audio = audio ? 1 : 0;
    if (audio)
        req.srtp.audioParam = audioParam;
    VX_RETURN_STRICT_FN(fn, Send2VoxalisByApp(sock,&req,sizeof(req),&resp));
}

} // namespace

int enableAudioRxSRTP(int sock, int channel, int cipher_type, int auth_type, const void* key, int keyLen,
                      int audioParam)
{
    return enableSrtp(__func__, sock, channel, 26, true, cipher_type, auth_type, key, keyLen, audioParam);
}

int enableAudioTxSRTP(int sock, int channel, int cipher_type, int auth_type, const void* key, int keyLen,
                      int audioParam)
{
    return enableSrtp(__func__, sock, channel, 27, true, cipher_type, auth_type, key, keyLen, audioParam);
}

int enableVideoRxSRTP(int sock, int channel, int cipher_type, int auth_type, const void* key, int keyLen)
{
    return enableSrtp(__func__, sock, channel, 120, false, cipher_type, auth_type, key, keyLen, 0);
}

int enableVideoTxSRTP(int sock, int channel, int cipher_type, int auth_type, const void* key, int keyLen)
{
    return enableSrtp(__func__, sock, channel, 121, false, cipher_type, auth_type, key, keyLen, 0);
}

int disableAudioRxSRTP(int sock, int channel, int audioParam)
{
    return disableSrtp(__func__, sock, channel, 26, true, audioParam);
}
int disableAudioTxSRTP(int sock, int channel, int audioParam)
{
    return disableSrtp(__func__, sock, channel, 27, true, audioParam);
}
int disableVideoRxSRTP(int sock, int channel) { return disableSrtp(__func__, sock, channel, 120, false, 0); }
int disableVideoTxSRTP(int sock, int channel) { return disableSrtp(__func__, sock, channel, 121, false, 0); }
