// Small readers that each take a few fields out of one kind of received message. They
// keep no state, allocate nothing that outlives the call, and report by a small integer
// (0 success, negative failure; the values of each reader are listed beside it).
//
// Two ways of reaching the payload are used, as each message kind requires:
//  - "fragment": the body cut out from "<body>" through "</body>" (GetMessageXMLBody) and
//    parsed on its own, so its root is <body>;
//  - "whole message": the full text parsed, with MESSAGE_BODY selected under the root.
// Texts are an element's text (the value of its first child) or an attribute value;
// numbers use atoi (atol where noted), so empty or non-numeric text gives 0. Every text
// output has a size and is cut to size - 1 characters plus the NUL.
#ifndef QXNET_XML_PAYLOADREADERS_H
#define QXNET_XML_PAYLOADREADERS_H

#include <stddef.h>
#include <stdint.h>

#include <string>

// Filled by GetLiveStreamParam; cleared first, with the channel id at -1 until read.
typedef struct LIVE_STREAM_PARAM_t {
  int32_t nChannelId;   // ChannelId, -1 when absent
  int32_t nVideoStream; // VideoStream, read as a number (0 main stream, 1 sub stream ...)
  int32_t nWidth;       // Width
  int32_t nHeight;      // Height
  int32_t nFrameRate;   // Framerate
  int32_t nBitRate;     // Bitrate
  char szEncoder[32];   // Encoder, kept as text ("H264", "H265" ...), cut to 31 characters
} LIVE_STREAM_PARAM_t;

// Filled by GetAudioRTPParam; cleared first, absent attributes stay 0.
typedef struct AUDIO_RTP_PARAM_t {
  int32_t nAudioCodec;      // AudioCodec
  int32_t nSampleRate;      // Samplerate
  int32_t nBitsPerSample;   // BitsPerSample
  int32_t nChannels;        // Channels
  int32_t nRTPRecvPort;     // RTPRecvPort
  int32_t nConnectionType;  // ConnectionType
} AUDIO_RTP_PARAM_t;

// The three encoder values ModifyVideoParam reads and writes, as attribute texts.
typedef struct VIDEO_ENCODE_PARAM_t {
  char szBitRate[32];    // BitRate
  char szInitquant[32];  // Initquant
  char szFrameRate[32];  // FrameRate
} VIDEO_ENCODE_PARAM_t;

// Authentication answer (PrivateProto, cmd "14012"): the text of body/authRsp/MAXChannels.
// The head is read with the same walk as GetMessageHeader (no envelope checks); the body
// (GetMessageBody) is wrapped as "<body>%s</body>\n" so several top-level elements parse.
// out is cleared first. 0 found (even with an empty text); -1 the message does not parse;
// -2 cmd is not exactly "14012"; -3 no body; -4 the wrapped body does not parse;
// -5 no authRsp or no MAXChannels.
int GetNVRChannels(const char* msg, char* out, size_t outSize);

// Recorder camera status (type "30000", cmd "35003"): the text of the last Ipcs_stat child
// of the fragment's root. Repeats the envelope checks of GetMessageHeader with its own log
// lines. out is cleared first. 0 when out ends non-empty; -1 envelope refused; -3 nothing
// found (no body, no Ipcs_stat, or an empty text); -4 the fragment does not parse.
int GetNVRIPCStatus(const char* msg, char* out, size_t outSize);

// Media message: *pos = -1, *len = atol of the last dataLen child of the fragment's root
// (0 when none). 0, also when there is no body (length 0); -1 the fragment does not parse
// (this includes "<body/>", whose fragment is the text "null") or an output is null.
int GetXmlPosAndDataLen(const char* msg, int64_t* pos, long* len);

// Configuration-file data answer: first startPos child (sign-extended from 32 bits) into
// *pos (-1 when absent) and first dataLength child into *len (0 when absent).
// 0, also when there is no body; -4 the fragment does not parse; -1 an output is null.
int GetConfigPosAndDataLen(const char* msg, int64_t* pos, long* len);

// File transfer answer: atoi of the first fileLength child of the fragment's root into
// *len (set to 0 first). 0 found; -1 no body, no such child or null len; -4 the fragment
// does not parse.
int GetFileTransportLength(const char* msg, int* len);

// File transfer notice, whose whole text is one element: its attributes Port (16 bits),
// Type and FileLength (atol, kept to 32 bits). All three outputs are cleared first (null
// ones are skipped). 0; -1 the text does not parse; -2 no root element.
int GetFileTransportPort(const char* msg, uint16_t* port, int* type, uint32_t* length);

// MESSAGE_BODY/ENCRYPT: when it has a Capbility attribute, *version = atoi of Version.
// *version is 0 when the element or either attribute is missing. 0; -1 the message does
// not parse or version is null.
int GetEncryptMethod(const char* msg, int* version);

// MESSAGE_BODY/KeyConfig (an element), attribute KeyValue, copied unchanged into key
// (cleared first). 0; -1 when the message does not parse, an element is missing or
// KeyValue is absent.
int GetEncryptKey(const char* msg, std::string& key);

// Live stream answer: children ChannelId, VideoStream, Encoder, Width, Height, Framerate,
// Bitrate of the fragment's root (first of each name). A missing Width, Height, Framerate
// or Bitrate is logged ("xmlutil: GetLiveStreamParam(): Width not found!\n" ...) and read
// as 0. 0; -1 no body or null param; -4 the fragment does not parse.
int GetLiveStreamParam(const char* msg, LIVE_STREAM_PARAM_t* param);

// Recorder record search answer (whole message): MESSAGE_BODY/RESPONSE_PARAM, its
// ChannelId and Stream. Each is taken from the attribute of that name when RESPONSE_PARAM
// has one, else from the text of its first child element of that name. channel starts as
// "-1" and stream as "". 0; -1 the message does not parse; -2 no MESSAGE_BODY;
// -3 no RESPONSE_PARAM.
int GetNvrRecInfo(const char* msg, char* channel, size_t channelSize, char* stream, size_t streamSize);

// As GetNvrRecInfo for the search by month, reading ChannelId, Time and RecordData (the
// month's record data). channel starts as "-1", time and recordData as "".
int GetNvrRecInfoByMonth(const char* msg, char* channel, size_t channelSize, char* time, size_t timeSize,
                         char* recordData, size_t recordDataSize);

// Picture answer: MESSAGE_BODY/RESPONSE_PARAM, attribute FileLen, into fileLen (cleared
// first). 0; -1 the message does not parse; -2 no MESSAGE_BODY; -3 no RESPONSE_PARAM
// element; -4 no FileLen attribute.
int GetDevPictureLen(const char* msg, char* fileLen, size_t fileLenSize);

// The older picture answer: MESSAGE_BODY/PICTURE, attribute FILE_LEN; results as
// GetDevPictureLen (-3 no PICTURE element, -4 no FILE_LEN attribute).
int GetPictureLen(const char* msg, char* fileLen, size_t fileLenSize);

// Audio start answer: MESSAGE_BODY/RA_START_RESPONSE, attributes AudioCodec, Samplerate,
// BitsPerSample, Channels, RTPRecvPort, ConnectionType. 0; -1 the message does not parse
// or param is null; -2 no MESSAGE_BODY; -3 no RA_START_RESPONSE element.
int GetAudioRTPParam(const char* msg, AUDIO_RTP_PARAM_t* param);

// Encode configuration text: the first EncodeConfig element, anywhere in the document and
// in document order, whose Stream attribute reads as `stream`. Its BitRate, Initquant and
// FrameRate attribute texts ("" when absent) are logged as
// "xml: get strBitRate=%s, strInitquant=%s, strFrameRate=%s \n" and copied into
// *oldValues (when not null). When newValues is not null, each of its non-empty fields is
// written back, in the order BitRate, Initquant, FrameRate (an absent attribute is appended
// in that order). When modified is not null it receives the whole document printed
// compactly after the changes. 0; -1 the text does not parse (or config is null);
// -2 no matching EncodeConfig.
int ModifyVideoParam(const char* config, int stream, const VIDEO_ENCODE_PARAM_t* newValues,
                     VIDEO_ENCODE_PARAM_t* oldValues, std::string* modified);

#endif
