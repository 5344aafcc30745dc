// What the manifest loader needs of the engine that owns it.
#pragma once

namespace kvmpd {

class MPDEventHandler;

/// Implemented by the engine. Both operations are called on the loader thread and must outlive it: the owner ends the
/// loader (MpdLoader::CloseThread) before it takes anything of this away.
class LoaderOwner {
  public:
    /// The dispatcher that carries events to the host. The loader queues events on it with its publication lock held,
    /// so queuing must not wait for a control operation.
    virtual MPDEventHandler& EventHandler() = 0;

    /// The range of the stream that the host may play has changed: a newer manifest was applied. Called with no lock of
    /// the loader held; the owner reads the loader's getters from here.
    virtual void UpdateCacheSegmentInfo() = 0;

  protected:
    ~LoaderOwner() = default;
};

}  // namespace kvmpd
