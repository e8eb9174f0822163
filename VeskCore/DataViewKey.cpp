#include "DataViewKey.h"

DataViewKey::DataViewKey(std::optional<qsizetype> sort, bool descending, QString filter)
    : m_sort(sort), m_descending(descending && sort.has_value()), m_filter(std::move(filter))
{
}
