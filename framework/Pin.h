// Pins: a filter's connection points and the store of the images that pass
// through them.
//
// Execution travels along pins in reverse. Asking an output pin for images
// runs the filter behind it, whose Proc asks its own input pins, and so on up
// to the filters that need no input. There is no scheduler: the order of work
// falls out of this recursion.
#pragma once

#include <opencv2/core.hpp>
#include <string>
#include <vector>

class IFilter;

class IPin {
public:
    virtual bool IsOutput() = 0;
    virtual const wchar_t* GetName() = 0;
    virtual int GetKey() = 0;
    // The images of the pin. The pointers stay owned by the pin and must not
    // be freed. An input pin hands out its own private copies (made once per
    // upstream change), so a consumer that writes into them changes nothing
    // any other consumer sees; ReadImages gives the same images without the
    // copy.
    virtual std::vector<cv::Mat*> GetImage() = 0;
    // The images of the pin as headers that share the stored pixels: for
    // reading only. The headers keep the pixels alive after the pin has
    // moved on to new images.
    virtual std::vector<cv::Mat> ReadImages();
    // Replaces the stored images with deep copies of `images`.
    virtual void SetImage(const std::vector<cv::Mat*>& images) = 0;
    // Replaces the stored images with `images` themselves, without copying
    // the pixels: the caller hands them over and must not write into them
    // afterwards. Consumers only ever read them.
    virtual void SetImages(std::vector<cv::Mat> images);
    virtual int GetVersion() = 0;
    virtual void SetLink(IPin* pin) = 0;
    virtual IPin* GetLink() = 0;
    // Drops the link and deletes the stored images.
    virtual void ClearImage() = 0;
    virtual ~IPin() = default;
};

class CPin : public IPin {
public:
    // grayFlag: SetImage reduces three-channel images to one channel.
    CPin(IFilter* owner, const wchar_t* name, int key, bool outputFlag, bool grayFlag);
    ~CPin() override;

    CPin(const CPin&) = delete;
    CPin& operator=(const CPin&) = delete;

    bool IsOutput() override { return m_output; }
    const wchar_t* GetName() override { return m_name.c_str(); }
    int GetKey() override { return m_key; }
    std::vector<cv::Mat*> GetImage() override;
    std::vector<cv::Mat> ReadImages() override;
    void SetImage(const std::vector<cv::Mat*>& images) override;
    void SetImages(std::vector<cv::Mat> images) override;
    int GetVersion() override { return m_version; }
    void SetLink(IPin* pin) override {
        m_link = pin;
        m_copiedFrom = nullptr;
    }
    IPin* GetLink() override { return m_link; }
    void ClearImage() override;

private:
    void DeleteImages();
    void DeleteCopies();
    // The images an input pin reads: its link's (pulled first), or else its
    // own. `source` and `version` name where they came from. False when the
    // pull was refused (a link loop or too deep a chain).
    bool Pull(std::vector<cv::Mat>& images, IPin*& source, int& version);
    void Store(std::vector<cv::Mat*>&& images);

    std::wstring m_name;
    int m_key = 0;
    IPin* m_link = nullptr;      // upstream pin, not owned
    IFilter* m_owner = nullptr;  // not owned
    std::vector<cv::Mat*> m_images;
    // An input pin's private copies for GetImage, and the pin and version
    // they were copied from: repeated calls return the same pointers until
    // the source changes.
    std::vector<cv::Mat*> m_copies;
    IPin* m_copiedFrom = nullptr;
    int m_copiedVersion = -1;
    int m_version = 0;
    bool m_output = false;
    bool m_gray = false;
    // Set while a pull passes through this input pin. A pull that comes back
    // to it through a loop of input-to-input links yields an empty list
    // instead of recursing without end.
    bool m_pulling = false;
};
