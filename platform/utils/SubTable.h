// utils::SubTable<Key, Value>: subscribers by key, each a callback taking a Value.
//
// subscribe() returns a request object; releasing the last shared pointer to it ends the
// subscription. notify() calls the callbacks subscribed to exactly that key, in subscription order,
// on the calling thread, with no lock of the table held (a callback may subscribe, unsubscribe or
// notify again).
//
// Thread safety: every member may be called from any thread. Subscribing or unsubscribing while
// another thread notifies is safe: the notifier walks an immutable snapshot of the key's callbacks
// (copy on write), so notify() allocates nothing. Once a request is released no new call to its
// callback starts; a call already started on another thread runs to its end.
#pragma once

#include <boost/function.hpp>
#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/thread/mutex.hpp>
#include <boost/weak_ptr.hpp>

#include <algorithm>
#include <atomic>
#include <map>
#include <vector>

namespace utils {

template <class Key, class Value>
class SubTable {
public:
    typedef boost::function<void(const Value&)> Callback;

    class SubRequest;
    typedef boost::shared_ptr<SubRequest> SubRequestPtr;

    SubTable() : m_state(boost::make_shared<State>()) {}
    ~SubTable() { reset(); }
    SubTable(const SubTable&) = delete;
    SubTable& operator=(const SubTable&) = delete;

    // Registers `cb` for `key`. The subscription lasts while the returned request is held.
    SubRequestPtr subscribe(const Key& key, const Callback& cb) {
        boost::shared_ptr<Entry> entry = boost::make_shared<Entry>(cb);
        {
            boost::mutex::scoped_lock lock(m_state->mutex);
            EntryList& list = m_state->byKey[key];
            boost::shared_ptr<Entries> next = list ? boost::make_shared<Entries>(*list) : boost::make_shared<Entries>();
            next->push_back(entry);
            list = next;
            m_state->count.fetch_add(1, std::memory_order_relaxed);
        }
        return SubRequestPtr(new SubRequest(m_state, key, entry));
    }

    // Calls every callback subscribed to `key`. Returns how many were called.
    size_t notify(const Key& key, const Value& value) const {
        if (m_state->count.load(std::memory_order_relaxed) == 0) return 0;
        EntryList list;
        {
            boost::mutex::scoped_lock lock(m_state->mutex);
            typename Map::const_iterator it = m_state->byKey.find(key);
            if (it == m_state->byKey.end()) return 0;
            list = it->second;
        }
        size_t called = 0;
        for (size_t i = 0; i < list->size(); ++i) {
            const Entry& e = *(*list)[i];
            if (e.active.load(std::memory_order_acquire)) {
                e.cb(value);
                ++called;
            }
        }
        return called;
    }

    bool hasSubscribers(const Key& key) const {
        if (m_state->count.load(std::memory_order_relaxed) == 0) return false;
        boost::mutex::scoped_lock lock(m_state->mutex);
        return m_state->byKey.find(key) != m_state->byKey.end();
    }

    // Number of live subscriptions.
    size_t size() const { return m_state->count.load(std::memory_order_relaxed); }

    // Ends every subscription; requests still held become inert.
    void reset() {
        Map old;
        {
            boost::mutex::scoped_lock lock(m_state->mutex);
            old.swap(m_state->byKey);
            m_state->count.store(0, std::memory_order_relaxed);
        }
        for (typename Map::iterator it = old.begin(); it != old.end(); ++it)
            for (size_t i = 0; i < it->second->size(); ++i) (*it->second)[i]->active.store(false, std::memory_order_release);
    }

private:
    struct Entry {
        explicit Entry(const Callback& c) : cb(c), active(true) {}
        Callback cb;
        std::atomic<bool> active;
    };
    typedef std::vector<boost::shared_ptr<Entry> > Entries;
    typedef boost::shared_ptr<const Entries> EntryList;
    typedef std::map<Key, EntryList> Map;
    struct State {
        State() : count(0) {}
        mutable boost::mutex mutex;
        Map byKey;
        std::atomic<size_t> count;
    };

public:
    class SubRequest {
    public:
        ~SubRequest() { cancel(); }
        // Ends the subscription now (the destructor does the same).
        void cancel() {
            boost::shared_ptr<Entry> entry = m_entry.lock();
            boost::shared_ptr<State> state = m_state.lock();
            if (!entry) return;
            entry->active.store(false, std::memory_order_release);
            if (state) {
                boost::mutex::scoped_lock lock(state->mutex);
                typename Map::iterator it = state->byKey.find(m_key);
                if (it != state->byKey.end()) {
                    const Entries& cur = *it->second;
                    typename Entries::const_iterator pos = std::find(cur.begin(), cur.end(), entry);
                    if (pos != cur.end()) {
                        if (cur.size() == 1) {
                            state->byKey.erase(it);
                        } else {
                            boost::shared_ptr<Entries> next = boost::make_shared<Entries>();
                            next->reserve(cur.size() - 1);
                            for (size_t i = 0; i < cur.size(); ++i)
                                if (cur[i] != entry) next->push_back(cur[i]);
                            it->second = next;
                        }
                        state->count.fetch_sub(1, std::memory_order_relaxed);
                    }
                }
            }
            m_entry.reset();
        }
        const Key& key() const { return m_key; }

    private:
        friend class SubTable;
        SubRequest(const boost::shared_ptr<State>& state, const Key& key, const boost::shared_ptr<Entry>& entry)
            : m_state(state), m_key(key), m_entry(entry), m_hold(entry) {}
        boost::weak_ptr<State> m_state;
        Key m_key;
        boost::weak_ptr<Entry> m_entry;
        boost::shared_ptr<Entry> m_hold;  // keeps the entry alive for the request's lifetime
    };

private:
    boost::shared_ptr<State> m_state;
};

}  // namespace utils
