// Included in front of the provider's sources when they are compiled for OXT_EXPLORED_PROVIDER: its atomic variables
// tell the scheduler of each access but the relaxed ones.
#ifndef OXT_EXPLORED_ATOMIC_H
#define OXT_EXPLORED_ATOMIC_H

#include <atomic>
#include <memory>

extern "C" void exploredAtomic();

namespace std { // NOLINT(cert-dcl58-cpp): what the provider calls std::atomic is to be this

template <class T> struct explored_atomic : atomic<T> {
    using atomic<T>::atomic;
    T load(memory_order order = memory_order_seq_cst) const {
        if (order == memory_order_seq_cst)
            exploredAtomic();
        return atomic<T>::load(order);
    }
    void store(T value, memory_order order = memory_order_seq_cst) {
        if (order == memory_order_seq_cst)
            exploredAtomic();
        atomic<T>::store(value, order);
    }
    T exchange(T value) {
        exploredAtomic();
        return atomic<T>::exchange(value);
    }
    T fetch_add(T value) {
        exploredAtomic();
        return atomic<T>::fetch_add(value);
    }
    T fetch_sub(T value) {
        exploredAtomic();
        return atomic<T>::fetch_sub(value);
    }
};

} // namespace std

#define atomic explored_atomic

#endif
