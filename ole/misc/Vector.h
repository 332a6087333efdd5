#pragma once
// Vector<T>: the library's own growable array. Its operations are virtual, so that a derived
// list can change how items are found or stored; capacity starts at 4 and doubles.

#include <utility>

template <class T>
class Vector {
public:
    T* items = nullptr;          // from new[]; null while capacity is 0
    unsigned int size = 0;       // elements in use
    unsigned int capacity = 0;   // elements allocated

    Vector() noexcept = default;
    Vector(const Vector& other) { copyFrom(other); }
    Vector(Vector&& other) noexcept { takeFrom(other); }
    Vector& operator=(const Vector& other)
    {
        if (this != &other) {
            purge();
            copyFrom(other);
        }
        return *this;
    }
    Vector& operator=(Vector&& other) noexcept
    {
        if (this != &other) consume(other);
        return *this;
    }

    // An exception out of the release path ends the process: destructors let none pass.
    virtual ~Vector() { purge(); }

    // Stores at the end; returns the new element's index.
    virtual unsigned int add(const T& item)
    {
        resizeFor(size + 1);
        items[size] = item;
        return size++;
    }

    virtual void push_back(const T& item) { add(item); }

    // Linear search from index 0. A miss sets index to size.
    virtual bool locate(const T& item, unsigned int& index) const
    {
        for (unsigned int i = 0; i < size; ++i) {
            if (items[i] == item) {
                index = i;
                return true;
            }
        }
        index = size;
        return false;
    }

    // Adds the item unless present; true when it was added.
    virtual bool intern(const T& item, unsigned int& index)
    {
        if (locate(item, index)) return false;
        insert(item, index);
        return true;
    }

    // Moves the elements from `position` up by one and stores there. A position past the end
    // is not checked against size: the element goes at that position and size grows by one,
    // which leaves the slots between unspecified. A position beyond the allocation stores
    // nothing, so that the array never writes outside its storage.
    virtual void insert(const T& item, unsigned int position)
    {
        resizeFor(size + 1);
        for (unsigned int i = size; i > position; --i) items[i] = std::move(items[i - 1]);
        if (position < capacity) items[position] = item;
        ++size;
    }

    // Shifts the rest down and clears the vacated last slot.
    virtual bool removeIdx(unsigned int index)
    {
        if (index >= size) return false;
        for (unsigned int i = index + 1; i < size; ++i) items[i - 1] = std::move(items[i]);
        --size;
        items[size] = T();
        return true;
    }

    // Removes [from, to). The slots left behind are not cleared: a string there keeps its
    // reference until the slot is overwritten or the array goes. `to` is not checked against
    // size; the count never falls below zero.
    virtual bool remove(unsigned int from, unsigned int to)
    {
        if (from >= to) return true;
        for (unsigned int i = to; i < size; ++i) items[from + (i - to)] = items[i];
        const unsigned int removed = to - from;
        size = removed <= size ? size - removed : 0;
        return true;
    }

    virtual bool removeItem(const T& item)
    {
        unsigned int index = 0;
        if (!locate(item, index)) return false;
        return removeIdx(index);
    }

    // Gives up the storage: capacity returns to 0.
    virtual void clear() { resizeFor(0); }

    // Takes `other`'s storage and leaves it empty with capacity 0.
    virtual void consume(Vector& other)
    {
        if (&other == this) return;
        purge();
        takeFrom(other);
    }

    // Makes room for n elements: 4 to begin with, then doubling; 0 frees everything.
    void resizeFor(unsigned int n)
    {
        if (n == 0) {
            purge();
            return;
        }
        if (n <= capacity) return;
        unsigned long long grown = capacity == 0 ? 4 : capacity;
        while (grown < n) grown *= 2;
        const unsigned int newCapacity = grown > 0xFFFFFFFFull ? n : static_cast<unsigned int>(grown);
        T* fresh = new T[newCapacity]();
        for (unsigned int i = 0; i < size; ++i) fresh[i] = std::move(items[i]);
        delete[] items;
        items = fresh;
        capacity = newCapacity;
    }

    // Destroys the elements from the last to the first and frees the array.
    void purge() noexcept
    {
        delete[] items;
        items = nullptr;
        size = 0;
        capacity = 0;
    }

    T& operator[](unsigned int i) noexcept { return items[i]; }
    const T& operator[](unsigned int i) const noexcept { return items[i]; }
    T* begin() noexcept { return items; }
    T* end() noexcept { return items + size; }
    const T* begin() const noexcept { return items; }
    const T* end() const noexcept { return items + size; }

private:
    void copyFrom(const Vector& other)
    {
        if (other.size == 0) return;
        resizeFor(other.size);
        for (unsigned int i = 0; i < other.size; ++i) items[i] = other.items[i];
        size = other.size;
    }

    void takeFrom(Vector& other) noexcept
    {
        items = other.items;
        size = other.size;
        capacity = other.capacity;
        other.items = nullptr;
        other.size = 0;
        other.capacity = 0;
    }
};
