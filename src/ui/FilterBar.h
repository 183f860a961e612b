#pragma once

#include <QWidget>

class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;

namespace brenvo {

class StorageModel;

// Above the list: search this folder by name, narrow by kind and size, and while filtering say how much
// was found and offer to clear it all.
class FilterBar : public QWidget {
    Q_OBJECT
public:
    explicit FilterBar(StorageModel& model, QWidget* parent = nullptr);

    QLineEdit* searchField() const { return search_; }
    QComboBox* kindPicker() const { return kind_; }
    QComboBox* sizePicker() const { return size_; }
    QLabel* matchText() const { return matches_; }
    QPushButton* clearButton() const { return clear_; }

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    void showModel();
    void refreshMatches();

    StorageModel& model_;
    QLineEdit* search_;
    QComboBox* kind_;
    QComboBox* size_;
    QLabel* matches_;
    QPushButton* clear_;
    QString longText_;
    QString shortText_;
    bool updating_ = false;
};

} // namespace brenvo
