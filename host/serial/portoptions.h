#ifndef HOST_PORTOPTIONS_H
#define HOST_PORTOPTIONS_H

// setOption codes that our host ports understand beyond the runtime's own.
// A port without them answers false, as for any unknown option.
namespace HostPortOptions
{

// Value: a time in ms. Returns once received bytes are waiting to be read
// or the time has passed; true when the port can wait at all (whether or
// not bytes came). A caller that gets false polls instead.
constexpr int WaitForInput = 0x4801;

} // namespace HostPortOptions

#endif
