// What a session tells its owner: status events, auxiliary answers, replay media and play
// events. The session knows its owner only through this interface, so it needs nothing
// of the core (and tests can stand in for the core).
#ifndef QXNET_SESSION_SESSIONSINK_H
#define QXNET_SESSION_SESSIONSINK_H

class ISessionSink {
 public:
  virtual ~ISessionSink() = default;
  // `dev` is the session (also its login identifier).
  virtual int OnPostDevStatusMsg(void* dev, int event, char* data) = 0;
  virtual int OnPostAuxRspMsg(void* dev, unsigned int command, int channel, const char* xml) = 0;
  virtual void OnFReplayMediaData(void* dev, unsigned long type, unsigned char* buffer,
                                  unsigned long length, void* ext) = 0;
  virtual long OnFRePlayEventCallBack(void* dev, long a, long b, char* text) = 0;
};

#endif
